// Public interface of the text layer: string procedures (basCZtStringManipulation), the
// character-level compare helpers they are built on, and the text serialization of definition
// objects (IZtSerializable, basSerialization).
#pragma once

#include "zt/text/compare.h"
#include "zt/text/serialization.h"
#include "zt/text/strings.h"
