#pragma once

#include <windows.h>

#include <string>

namespace test {

// What a damaged registry holds and the registry's own interface does not make, or not remove.
// Whatever fails here throws.

// Makes a key whose stored name is exactly this one, zeros included, and opens it. Who opens it
// closes it.
HKEY MakeNativeKey(HKEY parent, const std::wstring& name);

// Makes a key that is a link to another.
void MakeLinkedKey(HKEY parent, const std::wstring& name, HKEY target);

// Removes a key with all that is below it, whatever its names are and without following a link.
void RemoveNativeTree(HKEY key);

}  // namespace test
