// Public interface of the platform layer.
#pragma once
