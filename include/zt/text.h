// Public interface of the text layer.
#pragma once
