// The catalogue tool as a function, so that its command line can be tried
// without a process: main() is a call of Run.
#pragma once

#include <cstdio>

namespace catalogue {

// Runs the tool on a command line (argv[0] is the program's name, argv[argc]
// need not be null): results and the help go to `out`, errors to `err`.
// Gives the exit status: 0 found, 1 not found, 2 a wrong command line, 3
// when `out` could not be written (it is flushed before Run returns).
int Run(int argc, const char* const* argv, FILE* out, FILE* err);

}  // namespace catalogue
