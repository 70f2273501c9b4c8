#include "platform/win/media_type.h"

#include <cstring>

namespace kc::win {

HRESULT copy_media_type(const AM_MEDIA_TYPE& from, AM_MEDIA_TYPE& to) {
    to = from;
    to.pbFormat = nullptr;
    to.cbFormat = 0;
    if (to.pUnk != nullptr) {
        to.pUnk->AddRef();
    }
    if (from.cbFormat == 0 || from.pbFormat == nullptr) {
        return S_OK;
    }
    to.pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(from.cbFormat));
    if (to.pbFormat == nullptr) {
        return E_OUTOFMEMORY;
    }
    std::memcpy(to.pbFormat, from.pbFormat, from.cbFormat);
    to.cbFormat = from.cbFormat;
    return S_OK;
}

void free_media_type(AM_MEDIA_TYPE& type) {
    CoTaskMemFree(type.pbFormat);
    if (type.pUnk != nullptr) {
        type.pUnk->Release();
    }
    type = AM_MEDIA_TYPE{};
}

void delete_media_type(AM_MEDIA_TYPE* type) {
    if (type != nullptr) {
        free_media_type(*type);
        CoTaskMemFree(type);
    }
}

bool type_fits(const AM_MEDIA_TYPE& offered, const AM_MEDIA_TYPE& wanted) {
    auto same = [](const GUID& want, const GUID& have) {
        return IsEqualGUID(want, GUID_NULL) || IsEqualGUID(want, have);
    };
    return same(wanted.majortype, offered.majortype) && same(wanted.subtype, offered.subtype) &&
           same(wanted.formattype, offered.formattype);
}

}  // namespace kc::win
