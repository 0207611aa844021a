#include "platform/LazyLibrary.h"

#include <cstring>
#include <dlfcn.h>
#include <vector>

namespace limitra::platform::LazyLibrary {

bool load(const char* soname, std::initializer_list<Function> functions)
{
    void* handle = ::dlopen(soname, RTLD_NOW | RTLD_LOCAL);
    if (!handle)
        return false;
    std::vector<void*> found;
    found.reserve(functions.size());
    for (const Function& function : functions) {
        void* symbol = ::dlsym(handle, function.name);
        if (!symbol)
            return false;
        found.push_back(symbol);
    }
    // Object and function pointers have one size and representation on the
    // platforms dlsym serves.
    auto value = found.begin();
    for (const Function& function : functions)
        std::memcpy(function.slot, &*value++, sizeof(void*));
    return true;
}

} // namespace limitra::platform::LazyLibrary
