// The late-bound members every serializable definition object shares (IZtSerializable), added
// to a class's table with one call so that each table names only its own members.
#pragma once

#include "server/member_table.h"
#include "zt/text/serialization.h"

namespace zt {

template <class T>
void SerializableMembers(server::Table<T>& t) {
  t.Prop("EncodeFields", &ZtSerializable::EncodeFields, &ZtSerializable::EncodeFields)
      .Prop("FieldDelimiter", &ZtSerializable::FieldDelimiter, &ZtSerializable::FieldDelimiter)
      .Prop("FormatMask", &T::FormatMask, &T::FormatMask)
      .Prop("Replace", &T::Replace, &T::Replace)
      .Prop("SerialPersistentFields", &ZtSerializable::SerialPersistentFields,
            &ZtSerializable::SerialPersistentFields)
      .Prop("ChildrenFieldDelimiter", &ZtSerializable::ChildrenFieldDelimiter,
            &ZtSerializable::ChildrenFieldDelimiter)
      .Method("ToString", &T::ToString);
}

}  // namespace zt
