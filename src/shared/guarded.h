#pragma once

#include <exception>

namespace Utils {

// Runs one piece of work: an entry of a list, or a step. Platform failures do not throw, only
// running out of memory does: that ends the piece, perhaps in the middle of its log line, and the
// run goes on with the next.
template <typename Work>
void Guarded(const Work& work) {
    try {
        work();
    } catch (const std::exception&) {
        return;
    }
}

}  // namespace Utils
