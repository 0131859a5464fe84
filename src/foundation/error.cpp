#include "zt/error.h"

namespace zt {

ErrorInfo& Err() {
  thread_local ErrorInfo current;
  return current;
}

void ErrorSnapshot::Capture(const ErrorInfo& from) {
  number_ = from.number;
  source_ = from.source;
  description_ = from.description;
}

void ErrorSnapshot::Restore(ErrorInfo& into) const {
  into.number = number_;
  into.source = source_;
  into.description = description_;
}

namespace rt {

std::string Description(std::int32_t number) {
  switch (number) {
    case kInvalidProcedureCall:
      return "Invalid procedure call or argument";
    case kOverflow:
      return "Overflow";
    case kOutOfMemory:
      return "Out of memory";
    case kSubscriptOutOfRange:
      return "Subscript out of range";
    case kTypeMismatch:
      return "Type mismatch";
    case kFileNotFound:
      return "File not found";
    case kPathFileAccess:
      return "Path/File access error";
    case kObjectNotSet:
      return "Object variable or With block variable not set";
    case kInvalidUseOfNull:
      return "Invalid use of Null";
    case kCannotCreateObject:
      return "ActiveX component can't create object";
    case kActionNotSupported:
      return "Object doesn't support this action";
    case kMemberNotSupported:
      return "Object doesn't support this property or method";
    case kWrongArgumentCount:
      return "Wrong number of arguments or invalid property assignment";
    case kKeyAlreadyExists:
      return "This key is already associated with an element of this collection";
    case kElementNotFound:
      return "Element not found";
    default:
      return "Application-defined or object-defined error";
  }
}

void Raise(std::int32_t number) {
  throw ZtError(number, std::string(kLibrarySource), Description(number));
}

}  // namespace rt

std::string NotImplementedText(std::string_view type_name, std::string_view member, Accessor acc) {
  std::string text(type_name);
  text += '.';
  text += member;
  text += acc == Accessor::Get ? " (Get).  Currently not implemented."
                               : " (Let).  Currently not implemented.";
  return text;
}

void RaiseNotImplemented(std::string_view type_name, std::string_view member, Accessor acc) {
  throw ZtError(rt::kActionNotSupported, std::string(type_name),
                NotImplementedText(type_name, member, acc));
}

}  // namespace zt
