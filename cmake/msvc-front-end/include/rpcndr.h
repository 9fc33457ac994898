#pragma once
#include_next <rpcndr.h>

// For this compiler, Wine's lack the identifier that __uuidof needs.
#undef DECLSPEC_UUID
#define DECLSPEC_UUID(identifier) __declspec(uuid(identifier))
#undef MIDL_INTERFACE
#define MIDL_INTERFACE(identifier) struct DECLSPEC_UUID(identifier) DECLSPEC_NOVTABLE
