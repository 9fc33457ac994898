#pragma once

#include <exception>

namespace Utils {

// Does one piece of the run's work. No failure of the platform throws, only a want of memory: that
// ends the piece, without a line in the log, and the run goes on with the next.
template <typename Work>
void Guarded(const Work& work) {
    try {
        work();
    } catch (const std::exception&) {
        return;
    }
}

}  // namespace Utils
