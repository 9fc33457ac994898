#pragma once
#include_next <rpcndr.h>

// Wine's have no identifier in them for this compiler, which __uuidof asks for.
#undef DECLSPEC_UUID
#define DECLSPEC_UUID(identifier) __declspec(uuid(identifier))
#undef MIDL_INTERFACE
#define MIDL_INTERFACE(identifier) struct DECLSPEC_UUID(identifier) DECLSPEC_NOVTABLE
