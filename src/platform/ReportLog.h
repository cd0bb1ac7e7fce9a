#pragma once

namespace Report {

// Appends one audit record to the board's audit file: a JSON object on one
// line with the keys time, user, origin, kind, code and text (the first
// `length` bytes of `text`). On a board that audits to syslog, the record is
// "user=U origin=O kind=K code=C text=T" with facility authpriv at level
// notice. Returns 0 when the record was written (or handed to syslog).
int llog_putOrbLog(long length, const char* text, unsigned long kind, const char* origin, const char* userName,
                   const char* code);

} // namespace Report
