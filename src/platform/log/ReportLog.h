#pragma once

#include <string>

namespace Report {

// Appends one audit record to the board's audit file: a JSON object on one
// line with the keys time, user, origin, kind, code, text (the first
// `length` bytes of `text`) and applied: whether a change request was sent
// in this run. On a board that audits to syslog, the record is
// "user=U origin=O kind=K code=C applied=A text=T" with facility authpriv at
// level notice. Returns 0 when the record was written (or handed to syslog),
// else -1, and lastFailure() says why.
int llog_putOrbLog(long length, const char* text, unsigned long kind, const char* origin, const char* userName,
                   const char* code);

// Why the last record was not written.
const std::string& lastFailure();

} // namespace Report
