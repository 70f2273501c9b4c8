#include "graph/stdcap.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

void cap_assert_failed(const char* expression, const char* file, int line) {
    const char* slash = std::strrchr(file, '/');
    std::fprintf(stderr, "Assertion failed: %s, file %s, line %d\n", expression,
                 slash ? slash + 1 : file, line);
    std::fflush(stderr);
    std::abort();
}

bool same_object(Unknown* i1, Unknown* i2) {
    CAP_ASSERT(i1);
    CAP_ASSERT(i2);
    void* raw1 = nullptr;
    void* raw2 = nullptr;
    HRESULT hr = i1->query_interface(Iid::unknown, &raw1);
    CAP_ASSERT(SUCCEEDED(hr));
    hr = i2->query_interface(Iid::unknown, &raw2);
    CAP_ASSERT(SUCCEEDED(hr));
    auto* punknown1 = static_cast<Unknown*>(raw1);
    auto* punknown2 = static_cast<Unknown*>(raw2);
    CAP_ASSERT(punknown1);
    CAP_ASSERT(punknown2);
    const bool same = punknown1 == punknown2;
    punknown1->release();
    punknown2->release();
    return same;
}
