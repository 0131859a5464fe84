// Whether an object may ask the person at the keyboard (a password, a confirmation) or must
// work without asking. Classes that can prompt implement it; the flag is off at creation.
#pragma once

#include "zt/export.h"

namespace zt {

class ZT_EXPORT IZtUserInteraction {
 public:
  virtual ~IZtUserInteraction() = default;
  virtual bool UserInteraction() const = 0;
  virtual void UserInteraction(bool value) = 0;
};

}  // namespace zt
