// The engine session shared by a Connection and the recordsets and statements opened on it.
#pragma once

#include <memory>
#include <string>

#include "platform/driver.h"
#include "zt/error.h"

namespace zt::platform {

struct Session {
  std::unique_ptr<ConnectionBackend> backend;
  std::string provider;  // Source of the errors raised for this session
  int transaction_level = 0;
  bool broken = false;  // a failure showed the server gone; the connection reports closed

  const DriverQuirks& Quirks() const { return backend->Quirks(); }

  // Rewrites and prepares one statement of the library's SQL text.
  std::unique_ptr<StatementBackend> PrepareText(const std::string& sql);

  // Runs `fn`; when it fails with a general failure, checks whether the server is still there
  // and marks the session broken when it is not, then lets the error through.
  template <class F>
  decltype(auto) Guard(F&& fn) {
    try {
      return fn();
    } catch (const ZtError& e) {
      NoteFailure(e);
      throw;
    }
  }
  void NoteFailure(const ZtError& e);
};

}  // namespace zt::platform
