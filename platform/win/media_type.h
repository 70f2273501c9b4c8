// AM_MEDIA_TYPE records as DirectShow hands them around: a deep copy whose format block
// comes from the task allocator, and freeing what such a copy holds. Shared by the
// media adapter and every filter of our own.
#pragma once

#include "platform/win/win32.h"

namespace kc::win {

// A deep copy of `from` into `to` (whatever `to` held is not freed); E_OUTOFMEMORY, with
// no format block, when the allocator has none.
HRESULT copy_media_type(const AM_MEDIA_TYPE& from, AM_MEDIA_TYPE& to);
// Frees the format block and the object reference, and clears the record.
void free_media_type(AM_MEDIA_TYPE& type);
// Frees a whole record handed out by DirectShow (the record itself is the task
// allocator's too); null is allowed.
void delete_media_type(AM_MEDIA_TYPE* type);
// Whether `offered` is what a caller asked for with `wanted`, whose null major type,
// subtype or format type stands for any.
bool type_fits(const AM_MEDIA_TYPE& offered, const AM_MEDIA_TYPE& wanted);

}  // namespace kc::win
