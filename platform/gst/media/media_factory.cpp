// The entry to the media platform: the factory that makes device lists, graphs, capture
// graph builders and the DV splitter, and runs filters' property frames. Everything else
// in this folder is reached only through what the factory makes.
#include "platform/gst/media/gst_media.h"

#include "platform/gst/elements.h"
#include "platform/gst/media/media_internal.h"

namespace kc::gst {
namespace detail {
namespace {

class Factory : public media::MediaFactory {
  public:
    Factory(DialogHost& host_, VideoSurfaces& surfaces_, PropertyFrames* frames_)
        : host(host_), surfaces(surfaces_), frames(frames_) {}
    HRESULT create_instance(media::Clsid clsid, Iid iid, void** out) override {
        *out = nullptr;
        Unknown* made = nullptr;
        switch (clsid) {
            case media::Clsid::system_device_enum:
                made = make_dev_enum();
                break;
            case media::Clsid::filter_graph:
                made = static_cast<media::GraphBuilder*>(new Graph(host, surfaces));
                break;
            case media::Clsid::capture_graph_builder:
                made = make_capture_builder();
                break;
            case media::Clsid::dv_splitter:
                made = static_cast<media::BaseFilter*>(make_splitter());
                break;
        }
        if (made == nullptr) {
            return E_FAIL;
        }
        const HRESULT hr = made->query_interface(iid, out);
        made->release();
        return hr;
    }
    // The pages are built from the filter's element as it is now and shown by the host;
    // what the user changed goes back into the element when the frame closes with OK.
    HRESULT create_property_frame(WindowHandle owner, const std::string& caption, Unknown* object,
                                  const std::vector<media::Guid>& pages) override {
        if (frames == nullptr) {
            return E_NOTIMPL;
        }
        void* base = nullptr;
        if (object == nullptr || failed(object->query_interface(Iid::base_filter, &base))) {
            return E_NOINTERFACE;
        }
        auto* filter = dynamic_cast<Filter*>(static_cast<media::BaseFilter*>(base));
        HRESULT hr = E_INVALIDARG;
        if (filter != nullptr && filter->element != nullptr) {
            const std::vector<PropertyPage> shown = pages_of(*filter, pages);
            if (const auto changes = frames->show_property_frame(owner, caption, shown)) {
                apply_changes(*filter, *changes);
            }
            hr = S_OK;
        }
        static_cast<media::BaseFilter*>(base)->release();
        return hr;
    }

  private:
    DialogHost& host;
    VideoSurfaces& surfaces;
    PropertyFrames* frames;
};

}  // namespace
}  // namespace detail

std::unique_ptr<media::MediaFactory> make_media_factory(DialogHost& host, VideoSurfaces& surfaces,
                                                        PropertyFrames* frames) {
    gst_init(nullptr, nullptr);
    register_elements();
    return std::make_unique<detail::Factory>(host, surfaces, frames);
}

}  // namespace kc::gst
