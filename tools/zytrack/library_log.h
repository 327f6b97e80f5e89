// Keeps the library's log lines out of the terminal: while installed, every line it sends to
// liblog is kept (with its priority letter and tag) for a log file, counted by priority, and
// echoed to standard error only when asked. What the library logs is unchanged: the threshold
// stays liblog's own (INFO on a host). Host only: Debian's liblog has the pre-release
// __android_log_set_logger signature.
#pragma once

#include <string>
#include <vector>

namespace library_log {

// Routes liblog into the capture; `echo` also prints each line on standard error as it comes.
void Install(bool echo);
// Lines captured so far, each "TAG P text" (P: V D I W E F), and how many were errors or worse.
std::vector<std::string> Lines();
int ErrorCount();
// Writes the captured lines to a file; false when it cannot be written.
bool WriteTo(const std::string& path);

}  // namespace library_log
