// Public interface of the config layer.
#pragma once
