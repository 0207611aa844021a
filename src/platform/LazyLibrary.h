#pragma once

#include <initializer_list>

namespace limitra::platform {

// Shared libraries that only some runs need (TLS and HTTP, the secret store)
// are opened on first use instead of at start-up, where resolving their
// symbols would cost a short `--check` most of its time.
namespace LazyLibrary {
struct Function
{
    const char* name;
    void* slot; // the address of a function pointer, filled on success
};

// Opens `soname` (kept open for the life of the process) and fills every
// slot with the function of that name found in it or its dependencies.
// False, with no slot filled, when the library or any function is missing.
bool load(const char* soname, std::initializer_list<Function> functions);
} // namespace LazyLibrary

} // namespace limitra::platform

// A table of function pointers named like the functions themselves:
//   #define MY_API(X) X(curl_easy_init) X(curl_easy_perform)
//   struct Api { MY_API(LIMITRA_LAZY_POINTER) };
//   LazyLibrary::load("libcurl.so.4", { MY_API(LIMITRA_LAZY_SLOT) });   // with `Api api` in scope
#define LIMITRA_LAZY_POINTER(f) decltype(&::f) f = nullptr;
#define LIMITRA_LAZY_SLOT(f) ::limitra::platform::LazyLibrary::Function { #f, &api.f },
