// Public interface of the datastore layer.
#pragma once
