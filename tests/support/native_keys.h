#pragma once

#include <windows.h>

#include <string>

namespace test {

// What a damaged registry can hold, but the registry API cannot create or delete. Failures
// throw, except where it says otherwise.

// Creates a key whose stored name is exactly this one, zeros included, and opens it. The caller
// closes it.
HKEY MakeNativeKey(HKEY parent, const std::wstring& name);

// Creates a key that is a link to another.
void MakeLinkedKey(HKEY parent, const std::wstring& name, HKEY target);

// Deletes a key with everything below it, whatever the names, without following links. For
// destructors as well: a failure is the test's.
void RemoveNativeTree(HKEY key);

}  // namespace test
