#pragma once

#include <exception>

namespace Utils {

// Does one piece of the run's work: an entry of a list, or a step. No failure of the platform
// throws, only a want of memory: that ends the piece, in the middle of its line of the log perhaps,
// and the run goes on with the next.
template <typename Work>
void Guarded(const Work& work) {
    try {
        work();
    } catch (const std::exception&) {
        return;
    }
}

}  // namespace Utils
