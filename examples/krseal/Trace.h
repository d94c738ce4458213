// The library's trace, which would stand between this program's answers.
#pragma once

namespace krseal {

/// Turns it off, before anything else of the library is called.
void silenceTrace();

} // namespace krseal
