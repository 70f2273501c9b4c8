// The entry to the media platform: the factory that makes device lists, graphs, capture
// graph builders and the DV splitter, and the property listing a generic property dialog
// reads. Everything else in this folder is reached only through what the factory makes.
#include "platform/gst/media/gst_media.h"

#include <cstdio>

#include "platform/gst/kestrel_avi_sink.h"
#include "platform/gst/media/media_internal.h"

namespace kc::gst {
namespace detail {
namespace {

class Factory : public media::MediaFactory {
  public:
    Factory(DialogHost& host_, VideoSurfaces& surfaces_) : host(host_), surfaces(surfaces_) {}
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
    // The generic property dialog lives in the Qt host; until it is wired to this
    // factory there is no frame to show.
    HRESULT create_property_frame(WindowHandle, const std::string&, Unknown*,
                                  const std::vector<media::Guid>&) override {
        return E_NOTIMPL;
    }

  private:
    DialogHost& host;
    VideoSurfaces& surfaces;
};

}  // namespace
}  // namespace detail

std::unique_ptr<media::MediaFactory> make_media_factory(DialogHost& host, VideoSurfaces& surfaces) {
    gst_init(nullptr, nullptr);
    register_elements();
    return std::make_unique<detail::Factory>(host, surfaces);
}

std::vector<ElementProperty> element_properties(GstElement* element) {
    std::vector<ElementProperty> list;
    guint count = 0;
    GParamSpec** properties = g_object_class_list_properties(G_OBJECT_GET_CLASS(element), &count);
    for (guint i = 0; i < count; ++i) {
        GParamSpec* param = properties[i];
        if (!(param->flags & G_PARAM_READABLE)) {
            continue;
        }
        ElementProperty p;
        p.name = param->name;
        p.type = g_type_name(param->value_type);
        p.writable = (param->flags & G_PARAM_WRITABLE) && !(param->flags & G_PARAM_CONSTRUCT_ONLY);
        GValue value = G_VALUE_INIT;
        g_value_init(&value, param->value_type);
        g_object_get_property(G_OBJECT(element), param->name, &value);
        if (gchar* text = gst_value_serialize(&value)) {
            p.value = text;
            g_free(text);
        }
        g_value_unset(&value);
        char range[128] = "";
        if (G_IS_PARAM_SPEC_INT(param)) {
            auto* s = G_PARAM_SPEC_INT(param);
            std::snprintf(range, sizeof range, "%d..%d", s->minimum, s->maximum);
        } else if (G_IS_PARAM_SPEC_UINT(param)) {
            auto* s = G_PARAM_SPEC_UINT(param);
            std::snprintf(range, sizeof range, "%u..%u", s->minimum, s->maximum);
        } else if (G_IS_PARAM_SPEC_INT64(param)) {
            auto* s = G_PARAM_SPEC_INT64(param);
            std::snprintf(range, sizeof range, "%lld..%lld", static_cast<long long>(s->minimum),
                          static_cast<long long>(s->maximum));
        } else if (G_IS_PARAM_SPEC_UINT64(param)) {
            auto* s = G_PARAM_SPEC_UINT64(param);
            std::snprintf(range, sizeof range, "%llu..%llu",
                          static_cast<unsigned long long>(s->minimum),
                          static_cast<unsigned long long>(s->maximum));
        } else if (G_IS_PARAM_SPEC_DOUBLE(param)) {
            auto* s = G_PARAM_SPEC_DOUBLE(param);
            std::snprintf(range, sizeof range, "%g..%g", s->minimum, s->maximum);
        } else if (G_IS_PARAM_SPEC_ENUM(param)) {
            GEnumClass* e = G_PARAM_SPEC_ENUM(param)->enum_class;
            for (guint v = 0; v < e->n_values; ++v) {
                p.range += (v ? "," : "");
                p.range += e->values[v].value_nick;
            }
        }
        if (p.range.empty()) {
            p.range = range;
        }
        list.push_back(std::move(p));
    }
    g_free(properties);
    return list;
}

}  // namespace kc::gst
