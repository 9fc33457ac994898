#pragma once

// The whole program between wmain and the driver: prepares standard output, initialises COM for the
// thread (a run goes on without it), runs the actions. Takes the arguments of wmain. Returns the
// exit code, which is always 0.
int RunProgram(int argumentCount, const wchar_t* const* arguments);
