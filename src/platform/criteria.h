// The criteria texts of Find and Filter: "COLUMN_NAME='x'", "nId >= 5", "tName LIKE 'ab*'",
// "dDate = #1/31/2024#", "tCode = NULL", joined with AND / OR and parentheses. Text compares
// without regard to case, as the old cursor engine did; "*" and "%" are LIKE wildcards.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "zt/export.h"
#include "zt/variant.h"

namespace zt::platform {

class ZT_TEST_EXPORT Criteria {
 public:
  // Parses `text`; `resolve` maps a column name to its index (-1 when unknown). Throws ZtError
  // 3001 (invalid argument) for text it cannot read or an unknown column.
  static std::unique_ptr<Criteria> Parse(const std::string& text,
                                         const std::function<int(const std::string&)>& resolve,
                                         const std::string& source);
  virtual ~Criteria() = default;
  // True when the row (values by column index) meets the criteria.
  virtual bool Matches(const std::vector<Variant>& row) const = 0;
};

}  // namespace zt::platform
