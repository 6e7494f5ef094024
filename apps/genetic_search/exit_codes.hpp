// The exit codes of the program.
#pragma once

namespace varnholt::app {

inline constexpr int kExitDone = 0;
inline constexpr int kExitFailure = 1;
// Bad usage or bad input: nothing was written.
inline constexpr int kExitBadInput = 2;
// The two below are 128 and the number of a signal, as a shell shows a program that the signal
// ended. The second interrupt:
inline constexpr int kExitInterrupted = 130;
// The reader of standard output went away. The run was ended in good order and is stored.
inline constexpr int kExitReaderGone = 141;

}  // namespace varnholt::app
