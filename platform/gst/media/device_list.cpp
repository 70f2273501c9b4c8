// The device lists: capture sources from the GStreamer device monitor and the registered
// source providers, and the encoders offered as compressors. Each entry is a moniker that
// makes its filter only when bound, so listing devices opens none of them.
#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/gst/media/media_internal.h"
#include "platform/gst/source_provider.h"

namespace kc::gst::detail {
namespace {

class Bag : public media::PropertyBag, public Counted {
  public:
    explicit Bag(std::map<std::string, std::string> values_) : values(std::move(values_)) {}
    KC_COUNTED
    HRESULT query_interface(Iid iid, void** out) override {
        if (iid == Iid::unknown || iid == Iid::property_bag) {
            return give(this, out);
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    HRESULT read(const std::string& name, std::string& value) override {
        auto it = values.find(name);
        if (it == values.end()) {
            return E_FAIL;
        }
        value = it->second;
        return S_OK;
    }

  private:
    std::map<std::string, std::string> values;
};

class DeviceMoniker : public media::Moniker, public Counted {
  public:
    DeviceMoniker(std::map<std::string, std::string> values_, std::function<Filter*()> make_)
        : values(std::move(values_)), make(std::move(make_)) {}
    KC_COUNTED
    HRESULT query_interface(Iid iid, void** out) override {
        if (iid == Iid::unknown || iid == Iid::moniker) {
            return give(this, out);
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    HRESULT bind_to_object(Iid iid, void** out) override;
    HRESULT bind_to_storage(media::PropertyBag** out) override {
        *out = new Bag(values);
        return S_OK;
    }

  private:
    std::map<std::string, std::string> values;
    std::function<Filter*()> make;
};

class MonikerList : public media::EnumMoniker, public Counted {
  public:
    explicit MonikerList(std::vector<DeviceMoniker*> items_) : items(std::move(items_)) {}
    ~MonikerList() override {
        for (auto* m : items) {
            m->release();
        }
    }
    KC_COUNTED
    HRESULT query_interface(Iid iid, void** out) override {
        if (iid == Iid::unknown || iid == Iid::enum_moniker) {
            return give(this, out);
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    HRESULT next(media::Moniker** out) override {
        if (position >= items.size()) {
            *out = nullptr;
            return S_FALSE;
        }
        items[position]->add_ref();
        *out = items[position++];
        return S_OK;
    }

  private:
    std::vector<DeviceMoniker*> items;
    std::size_t position = 0;
};

std::string device_path_of(GstDevice* device) {
    std::string path;
    if (GstStructure* props = gst_device_get_properties(device)) {
        for (const char* key : {"device.path", "api.v4l2.path", "object.path", "node.name"}) {
            if (const char* v = gst_structure_get_string(props, key)) {
                path = v;
                break;
            }
        }
        gst_structure_free(props);
    }
    if (path.empty()) {
        gchar* name = gst_object_get_name(GST_OBJECT(device));
        path = name ? name : "";
        g_free(name);
    }
    return path;
}

std::vector<DeviceMoniker*> monitor_devices(bool audio) {
    std::vector<DeviceMoniker*> list;
    GstDeviceMonitor* monitor = gst_device_monitor_new();
    gst_device_monitor_add_filter(monitor, audio ? "Audio/Source" : "Video/Source", nullptr);
    // start() is what probes the providers; without it get_devices may be empty.
    const bool started = gst_device_monitor_start(monitor);
    GList* devices = gst_device_monitor_get_devices(monitor);
    for (GList* l = devices; l != nullptr; l = l->next) {
        GstDevice* device = GST_DEVICE(l->data);
        gchar* name = gst_device_get_display_name(device);
        std::map<std::string, std::string> values{{"FriendlyName", name ? name : "Unknown device"},
                                                  {"DevicePath", device_path_of(device)}};
        g_free(name);
        gst_object_ref(device);
        auto holder = std::shared_ptr<GstDevice>(device, [](GstDevice* d) { gst_object_unref(d); });
        list.push_back(new DeviceMoniker(
            values, [holder, audio] { return make_filter_from_device(holder.get(), audio); }));
    }
    g_list_free_full(devices, gst_object_unref);
    if (started) {
        gst_device_monitor_stop(monitor);
    }
    gst_object_unref(monitor);
    return list;
}

// Encoders of one kind, sorted by their long names so that a stored index keeps meaning
// the same codec from one run to the next.
std::vector<DeviceMoniker*> encoders(bool audio) {
    GList* factories = gst_element_factory_list_get_elements(
        GST_ELEMENT_FACTORY_TYPE_ENCODER |
            (audio ? GST_ELEMENT_FACTORY_TYPE_MEDIA_AUDIO : GST_ELEMENT_FACTORY_TYPE_MEDIA_VIDEO),
        GST_RANK_NONE);
    std::vector<std::pair<std::string, std::string>> found;  // long name, factory name
    for (GList* l = factories; l != nullptr; l = l->next) {
        GstElementFactory* f = GST_ELEMENT_FACTORY(l->data);
        const char* klass = gst_element_factory_get_metadata(f, GST_ELEMENT_METADATA_KLASS);
        // Image encoders (png, jpeg stills) and muxing "encoders" are no capture codecs.
        if (klass == nullptr || std::string(klass).find("Image") != std::string::npos) {
            continue;
        }
        const char* long_name = gst_element_factory_get_metadata(f, GST_ELEMENT_METADATA_LONGNAME);
        found.emplace_back(long_name ? long_name : GST_OBJECT_NAME(f), GST_OBJECT_NAME(f));
    }
    gst_plugin_feature_list_free(factories);
    std::sort(found.begin(), found.end());
    std::vector<DeviceMoniker*> list;
    for (const auto& [long_name, factory_name] : found) {
        std::map<std::string, std::string> values{{"FriendlyName", long_name},
                                                  {"DevicePath", factory_name}};
        list.push_back(new DeviceMoniker(values, [factory_name, audio]() -> Filter* {
            GstElementFactory* f = gst_element_factory_find(factory_name.c_str());
            if (f == nullptr) {
                return nullptr;
            }
            Filter* filter = make_compressor(f, audio);
            gst_object_unref(f);
            return filter;
        }));
    }
    return list;
}

class DevEnum : public media::CreateDevEnum, public Counted {
  public:
    KC_COUNTED
    HRESULT query_interface(Iid iid, void** out) override {
        if (iid == Iid::unknown || iid == Iid::create_dev_enum) {
            return give(this, out);
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    HRESULT create_class_enumerator(media::DeviceCategory category, media::EnumMoniker** out,
                                    std::uint32_t) override {
        std::vector<DeviceMoniker*> list;
        switch (category) {
            case media::DeviceCategory::video_input:
                list = monitor_devices(false);
                for (const auto& provider : source_providers()) {
                    for (auto& device : provider->devices()) {
                        if (!device) {
                            continue;
                        }
                        std::map<std::string, std::string> values{
                            {"FriendlyName", device->friendly_name()},
                            {"DevicePath", device->device_path()}};
                        list.push_back(new DeviceMoniker(
                            values, [device] { return make_filter_from_provider(device); }));
                    }
                }
                break;
            case media::DeviceCategory::audio_input:
                list = monitor_devices(true);
                break;
            case media::DeviceCategory::video_compressor:
                list = encoders(false);
                break;
            case media::DeviceCategory::audio_compressor:
                list = encoders(true);
                break;
        }
        if (list.empty()) {
            *out = nullptr;
            return S_FALSE;
        }
        *out = new MonikerList(std::move(list));
        return S_OK;
    }
};

HRESULT DeviceMoniker::bind_to_object(Iid iid, void** out) {
    *out = nullptr;
    Filter* f = make();
    if (f == nullptr) {
        return E_FAIL;
    }
    const HRESULT hr = f->query_interface(iid, out);
    f->release();
    return hr;
}

}  // namespace

media::CreateDevEnum* make_dev_enum() {
    return new DevEnum;
}

}  // namespace kc::gst::detail
