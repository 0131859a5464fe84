// Public interface of the text layer: string procedures (basCZtStringManipulation), the
// character-level compare helpers they are built on, the escaping of values in property strings
// (CZtPropString), and the text serialization of definition objects (IZtSerializable,
// basSerialization).
#pragma once

#include "zt/text/compare.h"
#include "zt/text/prop_string.h"
#include "zt/text/serialization.h"
#include "zt/text/strings.h"
