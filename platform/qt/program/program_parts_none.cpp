// A program built without the media platform: every platform object is missing, so the
// entry sequence reports the camera as not detected and ends with -1, as it does on a
// machine without a capture device.
#include <cstdio>

#include "platform/qt/program/program_parts.h"

namespace kc::program {
namespace {

class NoMediaFactory : public media::MediaFactory {
  public:
    HRESULT create_instance(media::Clsid, Iid, void** out) override {
        if (out != nullptr) {
            *out = nullptr;
        }
        return E_NOTIMPL;
    }
    HRESULT create_property_frame(WindowHandle, const std::string&, Unknown*,
                                  const std::vector<media::Guid>&) override {
        return E_NOTIMPL;
    }
};

}  // namespace

std::unique_ptr<media::MediaFactory> make_media_factory(DialogHost&, VideoSurfaces&,
                                                        PropertyFrames&) {
    return std::make_unique<NoMediaFactory>();
}

void register_extra_sources() {}

std::string media_summary() {
    return "built without the GStreamer media platform: no capture source is available";
}

}  // namespace kc::program
