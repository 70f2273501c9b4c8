#include "platform/gst/media/gst_media.h"

#include <gst/app/gstappsink.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <functional>
#include <map>
#include <mutex>

#include "platform/gst/kestrel_avi_sink.h"
#include "platform/gst/source_provider.h"

using media::MajorType;
using media::PinCategory;
using media::PinDirection;

namespace kc::gst {
namespace {

// The graph's own failure codes, in the values the capture graph layer reports.
constexpr HRESULT VFW_E_NOT_CONNECTED = static_cast<HRESULT>(0x80040209u);
constexpr HRESULT VFW_E_DUPLICATE_NAME = static_cast<HRESULT>(0x8004023Cu);
constexpr HRESULT VFW_E_NOT_FOUND = static_cast<HRESULT>(0x80040216u);
constexpr HRESULT VFW_E_ALREADY_CONNECTED = static_cast<HRESULT>(0x80040204u);
constexpr HRESULT VFW_E_NO_ACCEPTABLE_TYPES = static_cast<HRESULT>(0x80040207u);
constexpr HRESULT VFW_E_CANNOT_CONNECT = static_cast<HRESULT>(0x80040217u);

template <class T>
HRESULT give(T* object, void** out) {
    object->add_ref();
    *out = object;
    return S_OK;
}

// Reference counting shared by every object here; the object deletes itself at zero.
class Counted {
  public:
    virtual ~Counted() = default;
    std::uint32_t up() { return ++refs; }
    std::uint32_t down() {
        const std::uint32_t left = --refs;
        if (left == 0) {
            delete this;
        }
        return left;
    }

  private:
    std::atomic<std::uint32_t> refs{1};
};

#define KC_COUNTED                     \
    std::uint32_t add_ref() override { \
        return up();                   \
    }                                  \
    std::uint32_t release() override { \
        return down();                 \
    }

// ---- Device lists ------------------------------------------------------------------------

class Filter;
Filter* make_filter_from_device(GstDevice* device, bool audio);
Filter* make_filter_from_provider(std::shared_ptr<SourceDevice> device);
Filter* make_compressor(GstElementFactory* factory, bool audio);

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

// ---- Filters and pins ------------------------------------------------------------------

enum class Kind { source, audio_source, compressor, splitter, mux, file_writer, renderer };

class Graph;
class Filter;

// A pin is part of its filter: it shares the filter's reference count.
class PinImpl : public media::Pin {
  public:
    PinImpl(Filter& owner_, PinDirection direction_, std::string name_, MajorType type_)
        : owner(owner_), direction(direction_), name(std::move(name_)), type(type_) {}
    HRESULT query_interface(Iid iid, void** out) override;
    std::uint32_t add_ref() override;
    std::uint32_t release() override;
    HRESULT connected_to(media::Pin** out) override {
        if (peer == nullptr) {
            *out = nullptr;
            return VFW_E_NOT_CONNECTED;
        }
        peer->add_ref();
        *out = peer;
        return S_OK;
    }
    HRESULT query_pin_info(media::PinInfo& info) override;
    HRESULT query_direction(PinDirection& d) override {
        d = direction;
        return S_OK;
    }
    HRESULT enum_media_types(media::EnumMediaTypes** out) override;

    Filter& owner;
    PinDirection direction;
    std::string name;
    MajorType type;
    PinImpl* peer = nullptr;
    // What realises the connection in the pipeline (on the output side): elements put
    // in between, pads requested from a tee or a multiplexer, a pad-added handler.
    std::vector<GstElement*> between;
    GstPad* tee_pad = nullptr;
    GstPad* mux_pad = nullptr;
    GstElement* dynamic_on = nullptr;
    gulong dynamic_handler = 0;
    GstPad* dynamic_target = nullptr;
};

class TypeList : public media::EnumMediaTypes, public Counted {
  public:
    explicit TypeList(std::vector<media::MediaType> types_) : types(std::move(types_)) {}
    KC_COUNTED
    HRESULT query_interface(Iid iid, void** out) override {
        if (iid == Iid::unknown || iid == Iid::enum_media_types) {
            return give(this, out);
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    HRESULT next(media::MediaType& out, std::uint32_t* fetched) override {
        if (position >= types.size()) {
            if (fetched)
                *fetched = 0;
            return S_FALSE;
        }
        out = types[position++];
        if (fetched)
            *fetched = 1;
        return S_OK;
    }

  private:
    std::vector<media::MediaType> types;
    std::size_t position = 0;
};

class Filter : public media::BaseFilter,
               public media::ConfigInterleaving,
               public media::FileSink,
               public media::DroppedFrames,
               public Counted {
  public:
    Filter(Kind kind_, GstElement* element_) : kind(kind_), element(element_) {
        if (element) {
            gst_object_ref_sink(element);
        }
    }
    ~Filter() override {
        if (control) {
            control->release();
        }
        if (tee) {
            gst_object_unref(tee);
        }
        if (element) {
            gst_object_unref(element);
        }
    }
    KC_COUNTED
    HRESULT query_interface(Iid iid, void** out) override {
        *out = nullptr;
        switch (iid) {
            case Iid::unknown:
            case Iid::base_filter:
                return give(static_cast<media::BaseFilter*>(this), out);
            case Iid::config_interleaving:
                if (kind == Kind::mux) {
                    return give(static_cast<media::ConfigInterleaving*>(this), out);
                }
                break;
            case Iid::file_sink:
                if (kind == Kind::file_writer || (kind == Kind::mux && dv_writer)) {
                    return give(static_cast<media::FileSink*>(this), out);
                }
                break;
            case Iid::ext_device:
            case Iid::ext_transport:
            case Iid::timecode_reader:
                if (control) {
                    return control->query_interface(iid, out);
                }
                break;
            case Iid::dropped_frames:
                if (control && succeeded(control->query_interface(iid, out))) {
                    return S_OK;
                }
                if (kind == Kind::source || kind == Kind::audio_source) {
                    return give(static_cast<media::DroppedFrames*>(this), out);
                }
                break;
            default:
                break;
        }
        return E_NOINTERFACE;
    }
    HRESULT enum_pins(media::EnumPins** out) override;
    HRESULT put_mode(int mode) override {
        if (!dv_writer) {
            // avimux interleaves by time on its own and has no such setting.
            return S_FALSE;
        }
        g_object_set(element, "interleave", mode, nullptr);
        return S_OK;
    }
    HRESULT get_cur_file(std::string& path) override {
        if (file.empty()) {
            return E_FAIL;
        }
        path = file;
        return S_OK;
    }
    HRESULT get_num_dropped(long* count) override {
        *count = dropped.load();
        return S_OK;
    }
    HRESULT get_num_not_dropped(long* count) override {
        *count = delivered.load();
        return S_OK;
    }

    PinImpl* add_pin(PinDirection d, std::string name, MajorType type) {
        pins.push_back(std::make_unique<PinImpl>(*this, d, std::move(name), type));
        return pins.back().get();
    }

    Kind kind;
    GstElement* element;
    GstElement* tee = nullptr;  // sources: splits capture and preview
    bool dv = false;            // the source delivers DV
    bool dv_writer = false;     // a kestrelavisink multiplexer
    Unknown* control = nullptr;
    Graph* graph = nullptr;
    std::string graph_name;
    std::string file;
    std::vector<std::unique_ptr<PinImpl>> pins;
    std::atomic<long> dropped{0};
    std::atomic<long> delivered{0};
    GstClockTime last_pts = GST_CLOCK_TIME_NONE;
    GstClockTime frame_duration = GST_CLOCK_TIME_NONE;
};

HRESULT PinImpl::query_interface(Iid iid, void** out) {
    if (iid == Iid::pin) {
        return give(this, out);
    }
    if (iid == Iid::unknown) {
        // A pin's identity is its own, not its filter's.
        return give(static_cast<media::Pin*>(this), out);
    }
    *out = nullptr;
    return E_NOINTERFACE;
}
std::uint32_t PinImpl::add_ref() {
    return owner.up();
}
std::uint32_t PinImpl::release() {
    return owner.down();
}
HRESULT PinImpl::query_pin_info(media::PinInfo& info) {
    owner.add_ref();
    info.filter = &owner;
    info.direction = direction;
    info.name = name;
    return S_OK;
}
HRESULT PinImpl::enum_media_types(media::EnumMediaTypes** out) {
    std::vector<media::MediaType> types;
    if (owner.dv && type == MajorType::interleaved) {
        types.push_back({media::MEDIATYPE_Interleaved_guid, media::MEDIASUBTYPE_dvsd, {}});
    } else if (type == MajorType::video) {
        types.push_back({media::MEDIATYPE_Video_guid, {}, {}});
    } else if (type == MajorType::audio) {
        types.push_back({media::MEDIATYPE_Audio_guid, {}, {}});
    }
    *out = new TypeList(std::move(types));
    return S_OK;
}

class PinList : public media::EnumPins, public Counted {
  public:
    explicit PinList(Filter& owner_) : owner(owner_) { owner.add_ref(); }
    ~PinList() override { owner.release(); }
    KC_COUNTED
    HRESULT query_interface(Iid iid, void** out) override {
        if (iid == Iid::unknown || iid == Iid::enum_pins) {
            return give(this, out);
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    HRESULT next(media::Pin** out) override {
        if (position >= owner.pins.size()) {
            *out = nullptr;
            return S_FALSE;
        }
        PinImpl* pin = owner.pins[position++].get();
        pin->add_ref();
        *out = pin;
        return S_OK;
    }
    HRESULT reset() override {
        position = 0;
        return S_OK;
    }

  private:
    Filter& owner;
    std::size_t position = 0;
};

HRESULT Filter::enum_pins(media::EnumPins** out) {
    *out = new PinList(*this);
    return S_OK;
}

GstElement* make(const char* factory, const char* name = nullptr) {
    GstElement* e = gst_element_factory_make(factory, name);
    if (e == nullptr) {
        g_warning("GStreamer element \"%s\" is missing", factory);
    }
    return e;
}

// Counts the buffers leaving a source's capture branch, and the frames missing between
// them (a timestamp gap of more than half a frame beyond the next one's due time). Each
// run of the graph counts anew, as a capture filter does: a recording's count must not
// include the preview that ran before it.
GstPadProbeReturn count_frames(GstPad*, GstPadProbeInfo* info, gpointer data) {
    auto* filter = static_cast<Filter*>(data);
    if ((GST_PAD_PROBE_INFO_TYPE(info) & GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM) != 0) {
        if (GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) == GST_EVENT_STREAM_START) {
            filter->delivered = 0;
            filter->dropped = 0;
            filter->last_pts = GST_CLOCK_TIME_NONE;
        }
        return GST_PAD_PROBE_OK;
    }
    GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    const GstClockTime pts = GST_BUFFER_PTS(buffer);
    const GstClockTime duration = GST_BUFFER_DURATION(buffer);
    if (GST_CLOCK_TIME_IS_VALID(duration) && duration > 0) {
        filter->frame_duration = duration;
    }
    if (GST_CLOCK_TIME_IS_VALID(pts) && GST_CLOCK_TIME_IS_VALID(filter->last_pts) &&
        GST_CLOCK_TIME_IS_VALID(filter->frame_duration) && pts > filter->last_pts) {
        const GstClockTime gap = pts - filter->last_pts;
        const long missing =
            static_cast<long>((gap + filter->frame_duration / 2) / filter->frame_duration) - 1;
        if (missing > 0) {
            filter->dropped += missing;
        }
    }
    if (GST_CLOCK_TIME_IS_VALID(pts)) {
        filter->last_pts = pts;
    }
    ++filter->delivered;
    return GST_PAD_PROBE_OK;
}

Filter* make_source(GstElement* element, Kind kind, bool dv) {
    if (element == nullptr) {
        return nullptr;
    }
    auto* f = new Filter(kind, element);
    f->dv = dv;
    f->tee = make("tee");
    gst_object_ref_sink(f->tee);
    const MajorType type = dv ? MajorType::interleaved
                              : (kind == Kind::audio_source ? MajorType::audio : MajorType::video);
    f->add_pin(PinDirection::output, "Capture", type);
    f->add_pin(PinDirection::output, "Preview", type);
    return f;
}

Filter* make_filter_from_device(GstDevice* device, bool audio) {
    return make_source(gst_device_create_element(device, nullptr),
                       audio ? Kind::audio_source : Kind::source, false);
}

// Whether a source element offers DV, from what its "src" pad can produce.
bool offers_dv(GstElement* element) {
    GstPad* pad = element ? gst_element_get_static_pad(element, "src") : nullptr;
    if (pad == nullptr) {
        return false;
    }
    GstCaps* caps = gst_pad_query_caps(pad, nullptr);
    GstCaps* dv = gst_caps_from_string("video/x-dv");
    const bool result = caps && gst_caps_can_intersect(caps, dv);
    gst_caps_unref(dv);
    if (caps)
        gst_caps_unref(caps);
    gst_object_unref(pad);
    return result;
}

Filter* make_filter_from_provider(std::shared_ptr<SourceDevice> device) {
    GstElement* element = device->create_source();
    if (element) {
        gst_object_ref_sink(element);
    }
    const bool dv = offers_dv(element);
    Filter* f = make_source(element, Kind::source, dv);
    if (element) {
        gst_object_unref(element);
    }
    if (f != nullptr) {
        f->control = device->control();
    }
    return f;
}

// A compressor is its encoder behind the converters that give it raw data it accepts.
Filter* make_compressor(GstElementFactory* factory, bool audio) {
    GstElement* encoder = gst_element_factory_create(factory, nullptr);
    if (encoder == nullptr) {
        return nullptr;
    }
    GstElement* bin = gst_bin_new(nullptr);
    GstElement* convert = make(audio ? "audioconvert" : "videoconvert");
    GstElement* resample = audio ? make("audioresample") : nullptr;
    gst_bin_add_many(GST_BIN(bin), convert, encoder, nullptr);
    if (resample) {
        gst_bin_add(GST_BIN(bin), resample);
        gst_element_link_many(convert, resample, encoder, nullptr);
    } else {
        gst_element_link(convert, encoder);
    }
    GstPad* sink = gst_element_get_static_pad(convert, "sink");
    GstPad* src = gst_element_get_static_pad(encoder, "src");
    gst_element_add_pad(bin, gst_ghost_pad_new("sink", sink));
    gst_element_add_pad(bin, gst_ghost_pad_new("src", src));
    gst_object_unref(sink);
    gst_object_unref(src);
    auto* f = new Filter(Kind::compressor, bin);
    const MajorType type = audio ? MajorType::audio : MajorType::video;
    f->add_pin(PinDirection::input, "In", type);
    f->add_pin(PinDirection::output, "Out", type);
    return f;
}

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

// ---- The preview renderer ---------------------------------------------------------------

// Frames of the video renderer's appsink go to the surface of the pane that owns the
// video window; the pane's size sets the scaling caps.
struct VideoOut {
    std::mutex lock;
    VideoSurface* surface = nullptr;
    GstElement* caps = nullptr;  // capsfilter after videoscale (borrowed from the bin)
    int width = 0;
    int height = 0;
};

GstFlowReturn on_sample(GstAppSink* sink, gpointer data) {
    auto* out = static_cast<VideoOut*>(data);
    GstSample* sample = gst_app_sink_pull_sample(sink);
    if (sample == nullptr) {
        return GST_FLOW_EOS;
    }
    GstCaps* caps = gst_sample_get_caps(sample);
    GstStructure* s = caps ? gst_caps_get_structure(caps, 0) : nullptr;
    int width = 0;
    int height = 0;
    if (s && gst_structure_get_int(s, "width", &width) &&
        gst_structure_get_int(s, "height", &height)) {
        GstBuffer* buffer = gst_sample_get_buffer(sample);
        GstMapInfo map;
        if (buffer && gst_buffer_map(buffer, &map, GST_MAP_READ)) {
            const int stride = static_cast<int>(map.size / static_cast<std::size_t>(height));
            std::lock_guard guard(out->lock);
            if (out->surface) {
                out->surface->present(map.data, width, height,
                                      (width * 4 + 3) / 4 * 4 <= stride ? stride : width * 4);
            }
            gst_buffer_unmap(buffer, &map);
        }
    }
    gst_sample_unref(sample);
    return GST_FLOW_OK;
}

void set_scale(VideoOut& out) {
    if (out.caps == nullptr) {
        return;
    }
    GstCaps* caps = gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "BGRx", nullptr);
    if (out.width > 0 && out.height > 0) {
        gst_caps_set_simple(caps, "width", G_TYPE_INT, out.width, "height", G_TYPE_INT, out.height,
                            "pixel-aspect-ratio", GST_TYPE_FRACTION, 1, 1, nullptr);
    }
    g_object_set(out.caps, "caps", caps, nullptr);
    gst_caps_unref(caps);
}

const char* audio_sink_factory() {
    const char* chosen = g_getenv("KESTREL_AUDIO_SINK");
    return chosen && *chosen ? chosen : "autoaudiosink";
}

GstElement* video_chain(GstElement* bin, VideoOut* out, bool dv) {
    GstElement* queue = make("queue", "vq");
    GstElement* decode =
        dv ? make(gst_element_factory_find("avdec_dvvideo") ? "avdec_dvvideo" : "dvdec") : nullptr;
    GstElement* convert = make("videoconvert");
    GstElement* scale = make("videoscale");
    GstElement* caps = make("capsfilter");
    GstElement* sink = make("appsink");
    g_object_set(queue, "max-size-buffers", 3, "leaky", 2, nullptr);
    g_object_set(sink, "max-buffers", 2, "drop", TRUE, "sync", TRUE, "qos", TRUE, nullptr);
    gst_bin_add_many(GST_BIN(bin), queue, convert, scale, caps, sink, nullptr);
    if (decode) {
        gst_bin_add(GST_BIN(bin), decode);
        gst_element_link_many(queue, decode, convert, scale, caps, sink, nullptr);
    } else {
        gst_element_link_many(queue, convert, scale, caps, sink, nullptr);
    }
    out->caps = caps;
    set_scale(*out);
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = on_sample;
    gst_app_sink_set_callbacks(GST_APP_SINK(sink), &callbacks, out, nullptr);
    return queue;
}

GstElement* audio_chain(GstElement* bin) {
    GstElement* queue = make("queue", "aq");
    GstElement* convert = make("audioconvert");
    GstElement* resample = make("audioresample");
    GstElement* sink = make(audio_sink_factory());
    if (sink == nullptr) {
        sink = make("fakesink");
    }
    gst_bin_add_many(GST_BIN(bin), queue, convert, resample, sink, nullptr);
    gst_element_link_many(queue, convert, resample, sink, nullptr);
    return queue;
}

void ghost_sink(GstElement* bin, GstElement* first) {
    GstPad* pad = gst_element_get_static_pad(first, "sink");
    gst_element_add_pad(bin, gst_ghost_pad_new("sink", pad));
    gst_object_unref(pad);
}

void link_demux_pad(GstElement*, GstPad* pad, gpointer data) {
    auto* bin = static_cast<GstElement*>(data);
    gchar* name = gst_pad_get_name(pad);
    const bool video = g_str_has_prefix(name, "video");
    g_free(name);
    GstElement* target = gst_bin_get_by_name(GST_BIN(bin), video ? "vq" : "aq");
    if (target) {
        GstPad* sink = gst_element_get_static_pad(target, "sink");
        if (!gst_pad_is_linked(sink)) {
            gst_pad_link(pad, sink);
        }
        gst_object_unref(sink);
        gst_object_unref(target);
    }
}

// The default renderers of a preview request: DV is split and decoded, then shown and
// played; raw video is shown, raw audio played.
Filter* make_renderer(MajorType type, bool dv, VideoOut* out) {
    GstElement* bin = gst_bin_new(nullptr);
    if (dv) {
        GstElement* demux = make("dvdemux");
        gst_bin_add(GST_BIN(bin), demux);
        video_chain(bin, out, true);
        audio_chain(bin);
        g_signal_connect(demux, "pad-added", G_CALLBACK(link_demux_pad), bin);
        ghost_sink(bin, demux);
    } else if (type == MajorType::audio) {
        ghost_sink(bin, audio_chain(bin));
    } else {
        ghost_sink(bin, video_chain(bin, out, false));
    }
    auto* f = new Filter(Kind::renderer, bin);
    f->add_pin(PinDirection::input, "Input", dv ? MajorType::interleaved : type);
    return f;
}

// ---- The graph ---------------------------------------------------------------------------

struct Event {
    long code;
    LParam param1;
    LParam param2;
};

class Graph : public media::GraphBuilder,
              public media::MediaControl,
              public media::MediaEvent,
              public media::VideoWindow,
              public media::MediaSeeking,
              public Counted {
  public:
    Graph(DialogHost& host_, VideoSurfaces& surfaces_) : host(host_), surfaces(surfaces_) {
        pipeline = gst_pipeline_new("capture-graph");
        gst_object_ref_sink(pipeline);
        GstBus* bus = gst_element_get_bus(pipeline);
        gst_bus_set_sync_handler(bus, &Graph::on_bus, this, nullptr);
        gst_object_unref(bus);
    }
    ~Graph() override {
        gst_element_set_state(pipeline, GST_STATE_NULL);
        GstBus* bus = gst_element_get_bus(pipeline);
        gst_bus_set_sync_handler(bus, nullptr, nullptr, nullptr);
        gst_object_unref(bus);
        while (!filters.empty()) {
            remove_filter(filters.back());
        }
        std::lock_guard guard(lock);
        for (auto& e : events) {
            release_params(e.code, e.param1);
        }
        gst_object_unref(pipeline);
    }
    KC_COUNTED
    HRESULT query_interface(Iid iid, void** out) override {
        *out = nullptr;
        switch (iid) {
            case Iid::unknown:
            case Iid::graph_builder:
                return give(static_cast<media::GraphBuilder*>(this), out);
            case Iid::media_control:
                return give(static_cast<media::MediaControl*>(this), out);
            case Iid::media_event:
                return give(static_cast<media::MediaEvent*>(this), out);
            case Iid::video_window:
                return give(static_cast<media::VideoWindow*>(this), out);
            case Iid::media_seeking:
                return give(static_cast<media::MediaSeeking*>(this), out);
            default:
                return E_NOINTERFACE;
        }
    }

    // The running time of the graph, in the 100 ns units of media time; 0 before the
    // graph has run.
    HRESULT get_current_position(std::int64_t* position_100ns) override {
        if (position_100ns == nullptr) {
            return E_POINTER;
        }
        gint64 ns = 0;
        if (!gst_element_query_position(pipeline, GST_FORMAT_TIME, &ns) || ns < 0) {
            ns = 0;
        }
        *position_100ns = ns / 100;
        return S_OK;
    }

    HRESULT add_filter(media::BaseFilter* base, const std::string& name) override {
        auto* f = dynamic_cast<Filter*>(base);
        if (f == nullptr || base == nullptr) {
            return E_POINTER;
        }
        if (f->graph != nullptr) {
            return f->graph == this ? S_FALSE : E_INVALIDARG;
        }
        for (auto* other : filters) {
            if (other->graph_name == name) {
                return VFW_E_DUPLICATE_NAME;
            }
        }
        if (f->element && !gst_bin_add(GST_BIN(pipeline), f->element)) {
            return E_FAIL;
        }
        if (f->tee) {
            gst_bin_add(GST_BIN(pipeline), f->tee);
            if (!gst_element_link(f->element, f->tee)) {
                gst_bin_remove(GST_BIN(pipeline), f->tee);
                gst_bin_remove(GST_BIN(pipeline), f->element);
                return E_FAIL;
            }
        }
        f->add_ref();
        f->graph = this;
        f->graph_name = name;
        filters.push_back(f);
        return S_OK;
    }

    HRESULT remove_filter(media::BaseFilter* base) override {
        auto* f = dynamic_cast<Filter*>(base);
        auto it = std::find(filters.begin(), filters.end(), f);
        if (f == nullptr || it == filters.end()) {
            return E_INVALIDARG;
        }
        for (auto& pin : f->pins) {
            if (pin->peer) {
                disconnect(pin->peer);
                disconnect(pin.get());
            }
        }
        filters.erase(it);
        if (f->tee) {
            gst_element_set_state(f->tee, GST_STATE_NULL);
            gst_bin_remove(GST_BIN(pipeline), f->tee);
        }
        if (f->element) {
            gst_element_set_state(f->element, GST_STATE_NULL);
            gst_bin_remove(GST_BIN(pipeline), f->element);
        }
        f->graph = nullptr;
        f->release();
        return S_OK;
    }

    HRESULT disconnect(media::Pin* base) override {
        auto* pin = dynamic_cast<PinImpl*>(base);
        if (pin == nullptr) {
            return E_POINTER;
        }
        if (pin->peer == nullptr) {
            return S_FALSE;
        }
        PinImpl* out = pin->direction == PinDirection::output ? pin : pin->peer;
        unrealise(*out);
        pin->peer = nullptr;
        return S_OK;
    }

    HRESULT find_filter_by_name(const std::string& name, media::BaseFilter** out) override {
        for (auto* f : filters) {
            if (f->graph_name == name) {
                f->add_ref();
                *out = f;
                return S_OK;
            }
        }
        *out = nullptr;
        return VFW_E_NOT_FOUND;
    }

    HRESULT run() override {
        running_wanted = true;
        lost_reported = false;
        const GstStateChangeReturn r = gst_element_set_state(pipeline, GST_STATE_PLAYING);
        if (r == GST_STATE_CHANGE_FAILURE) {
            gst_element_set_state(pipeline, GST_STATE_NULL);
            return E_FAIL;
        }
        return r == GST_STATE_CHANGE_ASYNC ? S_FALSE : S_OK;
    }

    HRESULT stop() override {
        running_wanted = false;
        // EOS first, so that the file writer finishes the file from a drained pipeline
        // when it can; a source that does not stop on EOS is cut by going to NULL.
        GstState state = GST_STATE_NULL;
        gst_element_get_state(pipeline, &state, nullptr, 0);
        if (state == GST_STATE_PLAYING) {
            gst_element_send_event(pipeline, gst_event_new_eos());
            std::unique_lock guard(lock);
            drained.wait_for(guard, std::chrono::seconds(3), [this] { return eos_seen; });
        }
        gst_element_set_state(pipeline, GST_STATE_NULL);
        std::lock_guard guard(lock);
        eos_seen = false;
        return S_OK;
    }

    HRESULT set_notify_window(WindowHandle window, unsigned message, LParam data) override {
        std::lock_guard guard(lock);
        notify_window = window;
        notify_message = message;
        notify_data = data;
        return S_OK;
    }

    HRESULT get_event(long* code, LParam* p1, LParam* p2, long timeout_ms) override {
        std::unique_lock guard(lock);
        if (!queued.wait_for(guard, std::chrono::milliseconds(std::max(0L, timeout_ms)),
                             [this] { return !events.empty(); })) {
            return E_ABORT;
        }
        const Event e = events.front();
        events.pop_front();
        *code = e.code;
        *p1 = e.param1;
        *p2 = e.param2;
        return S_OK;
    }

    HRESULT free_event_params(long code, LParam p1, LParam) override {
        release_params(code, p1);
        return S_OK;
    }

    HRESULT put_owner(WindowHandle owner) override {
        std::lock_guard guard(video.lock);
        if (video.surface) {
            video.surface->clear();
        }
        video.surface = owner ? surfaces.surface_for(owner) : nullptr;
        return S_OK;
    }
    HRESULT put_window_style(long) override { return S_OK; }
    HRESULT put_visible(long visible) override {
        if (visible == media::OAFALSE) {
            std::lock_guard guard(video.lock);
            if (video.surface) {
                video.surface->clear();
            }
        }
        return S_OK;
    }
    HRESULT set_window_position(long, long, long width, long height) override {
        std::lock_guard guard(video.lock);
        video.width = static_cast<int>(width);
        video.height = static_cast<int>(height);
        set_scale(video);
        return S_OK;
    }

    // Realises the connection of `out` to `in` in the pipeline.
    HRESULT connect(PinImpl& out, PinImpl& in);
    Filter* add_renderer(MajorType type, bool dv);

    GstElement* pipeline = nullptr;
    std::vector<Filter*> filters;
    VideoOut video;

  private:
    void release_params(long code, LParam p1) {
        if (code == media::EC_DEVICE_LOST && p1 != 0) {
            reinterpret_cast<Unknown*>(p1)->release();
        }
    }
    void unrealise(PinImpl& out);
    void queue_event(long code, LParam p1, LParam p2) {
        WindowHandle window = nullptr;
        unsigned message = 0;
        LParam data = 0;
        {
            std::lock_guard guard(lock);
            events.push_back({code, p1, p2});
            window = notify_window;
            message = notify_message;
            data = notify_data;
        }
        queued.notify_all();
        if (window != nullptr) {
            host.post_message(window, message, 0, data);
        }
    }
    // The filter whose element (or one inside it) posted a message.
    Filter* filter_of(GstObject* object) {
        for (GstObject* o = object; o != nullptr; o = GST_OBJECT_PARENT(o)) {
            for (auto* f : filters) {
                if (GST_OBJECT(f->element) == o) {
                    return f;
                }
            }
        }
        return nullptr;
    }
    static GstBusSyncReply on_bus(GstBus*, GstMessage* message, gpointer data) {
        auto* self = static_cast<Graph*>(data);
        switch (GST_MESSAGE_TYPE(message)) {
            case GST_MESSAGE_EOS: {
                {
                    std::lock_guard guard(self->lock);
                    self->eos_seen = true;
                }
                self->drained.notify_all();
                if (self->running_wanted) {
                    self->queue_event(media::EC_COMPLETE, 0, 0);
                }
                break;
            }
            case GST_MESSAGE_ERROR: {
                GError* error = nullptr;
                gchar* debug = nullptr;
                gst_message_parse_error(message, &error, &debug);
                g_warning("%s: %s (%s)", GST_OBJECT_NAME(GST_MESSAGE_SRC(message)),
                          error ? error->message : "error", debug ? debug : "");
                g_clear_error(&error);
                g_free(debug);
                // The filter list changes only on the UI thread while the graph is
                // stopped, so reading it from a streaming thread here is safe.
                Filter* f = self->filter_of(GST_MESSAGE_SRC(message));
                if (f && (f->kind == Kind::source || f->kind == Kind::audio_source)) {
                    // A source that fails posts an error from each element it stops;
                    // the device is lost once per run.
                    if (self->lost_reported.exchange(true)) {
                        break;
                    }
                    void* identity = nullptr;
                    f->query_interface(Iid::unknown, &identity);
                    self->queue_event(media::EC_DEVICE_LOST, reinterpret_cast<LParam>(identity), 0);
                } else {
                    self->queue_event(media::EC_ERRORABORT, E_FAIL, 0);
                }
                break;
            }
            default:
                break;
        }
        return GST_BUS_PASS;
    }

    DialogHost& host;
    VideoSurfaces& surfaces;
    std::mutex lock;
    std::condition_variable queued;
    std::condition_variable drained;
    std::deque<Event> events;
    bool eos_seen = false;
    std::atomic<bool> running_wanted{false};
    std::atomic<bool> lost_reported{false};
    WindowHandle notify_window = nullptr;
    unsigned notify_message = 0;
    LParam notify_data = 0;
};

// dvdemux names its pads "video" and "audio" as it finds the streams; a connection made
// before then is completed when the pad appears.
void link_when_added(GstElement*, GstPad* pad, gpointer data) {
    auto* pin = static_cast<PinImpl*>(data);
    gchar* name = gst_pad_get_name(pad);
    const bool video = g_str_has_prefix(name, "video");
    g_free(name);
    if (video == (pin->type != MajorType::audio) && pin->dynamic_target &&
        !gst_pad_is_linked(pin->dynamic_target)) {
        gst_pad_link(pad, pin->dynamic_target);
    }
}

HRESULT Graph::connect(PinImpl& out, PinImpl& in) {
    if (out.peer || in.peer) {
        return VFW_E_ALREADY_CONNECTED;
    }
    Filter& from = out.owner;
    Filter& to = in.owner;
    GstBin* bin = GST_BIN(pipeline);
    GstPad* src = nullptr;
    bool dynamic = false;
    if (from.tee) {
        GstElement* queue = make("queue");
        // The capture branch must not lose frames to a slow preview, nor the preview
        // hold up the capture: the preview's queue leaks, the capture's is deep.
        if (out.name == "Preview") {
            g_object_set(queue, "leaky", 2, "max-size-buffers", 5, nullptr);
        } else {
            g_object_set(queue, "max-size-buffers", 200, "max-size-bytes", 0, "max-size-time",
                         G_GUINT64_CONSTANT(0), nullptr);
        }
        gst_bin_add(bin, queue);
        out.between.push_back(queue);
        out.tee_pad = gst_element_request_pad_simple(from.tee, "src_%u");
        GstPad* qsink = gst_element_get_static_pad(queue, "sink");
        gst_pad_link(out.tee_pad, qsink);
        gst_object_unref(qsink);
        src = gst_element_get_static_pad(queue, "src");
        if (out.name == "Capture") {
            gst_pad_add_probe(src,
                              static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER |
                                                           GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM),
                              count_frames, &from, nullptr);
        }
        // Raw video and audio may need converting before a multiplexer takes them.
        if (!from.dv && to.kind == Kind::mux) {
            GstElement* convert =
                make(from.kind == Kind::audio_source ? "audioconvert" : "videoconvert");
            gst_bin_add(bin, convert);
            out.between.push_back(convert);
            GstPad* csink = gst_element_get_static_pad(convert, "sink");
            gst_pad_link(src, csink);
            gst_object_unref(csink);
            gst_object_unref(src);
            src = gst_element_get_static_pad(convert, "src");
        }
    } else if (from.kind == Kind::splitter) {
        dynamic = true;
    } else if (from.kind == Kind::mux && to.kind == Kind::file_writer) {
        src = from.dv_writer ? nullptr : gst_element_get_static_pad(from.element, "src");
    } else {
        src = gst_element_get_static_pad(from.element, "src");
    }

    GstPad* sink = nullptr;
    if (to.kind == Kind::mux) {
        const bool audio = out.type == MajorType::audio;
        out.mux_pad = gst_element_request_pad_simple(to.element, audio ? "audio_%u" : "video_%u");
        if (out.mux_pad == nullptr) {
            unrealise(out);
            if (src)
                gst_object_unref(src);
            return VFW_E_NO_ACCEPTABLE_TYPES;
        }
        sink = GST_PAD(gst_object_ref(out.mux_pad));
    } else if (to.kind != Kind::file_writer || !from.dv_writer) {
        sink = gst_element_get_static_pad(to.element, "sink");
    }

    HRESULT hr = S_OK;
    if (dynamic) {
        out.dynamic_on = from.element;
        out.dynamic_target = sink;
        sink = nullptr;
        out.dynamic_handler =
            g_signal_connect(from.element, "pad-added", G_CALLBACK(link_when_added), &out);
    } else if (src && sink && GST_PAD_LINK_FAILED(gst_pad_link(src, sink))) {
        hr = VFW_E_CANNOT_CONNECT;
    }
    if (src)
        gst_object_unref(src);
    if (sink)
        gst_object_unref(sink);
    if (failed(hr)) {
        unrealise(out);
        return hr;
    }
    out.peer = &in;
    in.peer = &out;
    return S_OK;
}

void Graph::unrealise(PinImpl& out) {
    GstBin* bin = GST_BIN(pipeline);
    if (out.dynamic_handler) {
        g_signal_handler_disconnect(out.dynamic_on, out.dynamic_handler);
        out.dynamic_handler = 0;
        out.dynamic_on = nullptr;
    }
    if (out.dynamic_target) {
        if (GstPad* peer = gst_pad_get_peer(out.dynamic_target)) {
            gst_pad_unlink(peer, out.dynamic_target);
            gst_object_unref(peer);
        }
        gst_object_unref(out.dynamic_target);
        out.dynamic_target = nullptr;
    }
    // Static links between filters' own elements.
    if (!out.owner.tee && out.owner.kind != Kind::splitter && out.owner.element) {
        if (GstPad* src = gst_element_get_static_pad(out.owner.element, "src")) {
            if (GstPad* peer = gst_pad_get_peer(src)) {
                gst_pad_unlink(src, peer);
                gst_object_unref(peer);
            }
            gst_object_unref(src);
        }
    }
    for (GstElement* e : out.between) {
        gst_element_set_state(e, GST_STATE_NULL);
        gst_bin_remove(bin, e);
    }
    out.between.clear();
    if (out.tee_pad) {
        gst_element_release_request_pad(out.owner.tee, out.tee_pad);
        gst_object_unref(out.tee_pad);
        out.tee_pad = nullptr;
    }
    if (out.mux_pad) {
        if (GstPad* peer = gst_pad_get_peer(out.mux_pad)) {
            gst_pad_unlink(peer, out.mux_pad);
            gst_object_unref(peer);
        }
        if (out.peer) {
            gst_element_release_request_pad(out.peer->owner.element, out.mux_pad);
        }
        gst_object_unref(out.mux_pad);
        out.mux_pad = nullptr;
    }
    if (out.peer) {
        out.peer->peer = nullptr;
    }
    out.peer = nullptr;
}

Filter* Graph::add_renderer(MajorType type, bool dv) {
    Filter* f = make_renderer(type, dv, &video);
    char name[48];
    std::snprintf(name, sizeof name, "%s Renderer %zu",
                  type == MajorType::audio && !dv ? "Audio" : "Video", filters.size());
    if (failed(add_filter(f, name))) {
        f->release();
        return nullptr;
    }
    f->release();  // the graph holds it
    return f;
}

// ---- The capture graph builder --------------------------------------------------------------

bool matches(const PinImpl& pin, MajorType type) {
    return type == MajorType::none || pin.type == type ||
           (type == MajorType::interleaved && pin.type != MajorType::audio);
}

PinImpl* free_pin(Filter& f, PinDirection d, PinCategory category, MajorType type) {
    for (auto& pin : f.pins) {
        if (pin->direction != d || pin->peer) {
            continue;
        }
        if (f.tee && d == PinDirection::output) {
            const char* wanted = category == PinCategory::preview ? "Preview" : "Capture";
            if (pin->name != wanted) {
                continue;
            }
        }
        if (d == PinDirection::input || matches(*pin, type)) {
            return pin.get();
        }
    }
    return nullptr;
}

PinImpl* mux_input(Filter& mux, MajorType type) {
    mux.add_pin(PinDirection::input, "Input " + std::to_string(mux.pins.size()), type);
    return mux.pins.back().get();
}

class Builder : public media::CaptureGraphBuilder, public Counted {
  public:
    ~Builder() override {
        if (graph)
            graph->release();
    }
    KC_COUNTED
    HRESULT query_interface(Iid iid, void** out) override {
        if (iid == Iid::unknown || iid == Iid::capture_graph_builder) {
            return give(this, out);
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    HRESULT set_filtergraph(media::GraphBuilder* g) override {
        auto* impl = dynamic_cast<Graph*>(g);
        if (impl == nullptr) {
            return E_INVALIDARG;
        }
        impl->add_ref();
        if (graph)
            graph->release();
        graph = impl;
        return S_OK;
    }

    HRESULT set_output_file_name(const std::string& path, media::BaseFilter** mux_out,
                                 media::FileSink** sink_out) override {
        *mux_out = nullptr;
        if (sink_out)
            *sink_out = nullptr;
        if (graph == nullptr) {
            return E_UNEXPECTED;
        }
        if (path.empty()) {
            return E_INVALIDARG;
        }
        // The DV writer is the multiplexer and the file writer in one element; a DV
        // source in the graph picks it, anything else goes through avimux.
        bool dv = false;
        for (auto* f : graph->filters) {
            dv = dv || (f->kind == Kind::source && f->dv);
        }
        GstElement* element = dv ? make("kestrelavisink") : make("avimux");
        if (element == nullptr) {
            return E_FAIL;
        }
        auto* mux = new Filter(Kind::mux, element);
        mux->dv_writer = dv;
        mux->add_pin(PinDirection::output, "AVI Out", MajorType::interleaved);
        Filter* writer = nullptr;
        if (dv) {
            g_object_set(element, "location", path.c_str(), nullptr);
            mux->file = path;
            writer = new Filter(Kind::file_writer, nullptr);
        } else {
            GstElement* filesink = make("filesink");
            g_object_set(filesink, "location", path.c_str(), "async", FALSE, nullptr);
            writer = new Filter(Kind::file_writer, filesink);
        }
        writer->file = path;
        writer->add_pin(PinDirection::input, "in", MajorType::interleaved);
        HRESULT hr = graph->add_filter(mux, "AVI Mux");
        if (succeeded(hr)) {
            hr = graph->add_filter(writer, path);
            if (succeeded(hr)) {
                hr = graph->connect(*mux->pins[0], *writer->pins[0]);
            }
        }
        if (failed(hr)) {
            graph->remove_filter(writer);
            graph->remove_filter(mux);
            writer->release();
            mux->release();
            return hr;
        }
        *mux_out = mux;
        if (sink_out) {
            *sink_out = writer;
        } else {
            writer->release();
        }
        return S_OK;
    }

    HRESULT render_stream(PinCategory category, MajorType type, Unknown* source,
                          media::BaseFilter* intermediate, media::BaseFilter* sink) override {
        if (graph == nullptr) {
            return E_UNEXPECTED;
        }
        Filter* src = as_filter(source);
        if (src == nullptr) {
            return E_POINTER;
        }
        PinImpl* out = free_pin(*src, PinDirection::output, category, type);
        if (out == nullptr) {
            return VFW_E_NOT_FOUND;
        }
        auto* through = dynamic_cast<Filter*>(intermediate);
        if (through) {
            PinImpl* in = free_pin(*through, PinDirection::input, PinCategory::none, type);
            if (in == nullptr) {
                return VFW_E_NOT_FOUND;
            }
            HRESULT hr = graph->connect(*out, *in);
            if (failed(hr)) {
                return hr;
            }
            // The splitter's video leaves through the intermediate; its audio waits
            // for a request of its own.
            const MajorType next = through->kind == Kind::splitter ? MajorType::video : type;
            out = free_pin(*through, PinDirection::output, PinCategory::none, next);
            if (out == nullptr) {
                return VFW_E_NOT_FOUND;
            }
        }
        auto* to = dynamic_cast<Filter*>(sink);
        if (to == nullptr) {
            Filter* renderer = graph->add_renderer(out->type, out->owner.dv);
            if (renderer == nullptr) {
                return E_FAIL;
            }
            return graph->connect(*out, *renderer->pins[0]);
        }
        PinImpl* in = to->kind == Kind::mux
                          ? mux_input(*to, out->type)
                          : free_pin(*to, PinDirection::input, PinCategory::none, out->type);
        if (in == nullptr) {
            return VFW_E_NOT_FOUND;
        }
        HRESULT hr = graph->connect(*out, *in);
        if (failed(hr) && to->kind == Kind::mux) {
            to->pins.pop_back();
        }
        return hr;
    }

    HRESULT find_interface(PinCategory, MajorType, media::BaseFilter* filter, Iid iid,
                           void** out) override {
        *out = nullptr;
        if (filter == nullptr) {
            return E_POINTER;
        }
        // The filter itself answers first; else whatever its output pins lead to.
        if (succeeded(filter->query_interface(iid, out))) {
            return S_OK;
        }
        auto* f = dynamic_cast<Filter*>(filter);
        if (f) {
            for (auto& pin : f->pins) {
                if (pin->direction == PinDirection::output && pin->peer &&
                    succeeded(find_interface(PinCategory::none, MajorType::none, &pin->peer->owner,
                                             iid, out))) {
                    return S_OK;
                }
            }
        }
        return E_NOINTERFACE;
    }

  private:
    static Filter* as_filter(Unknown* u) {
        if (u == nullptr) {
            return nullptr;
        }
        void* base = nullptr;
        if (failed(u->query_interface(Iid::base_filter, &base)) || base == nullptr) {
            return nullptr;
        }
        auto* f = dynamic_cast<Filter*>(static_cast<media::BaseFilter*>(base));
        static_cast<media::BaseFilter*>(base)->release();
        return f;
    }
    Graph* graph = nullptr;
};

Filter* make_splitter() {
    GstElement* demux = make("dvdemux");
    if (demux == nullptr) {
        return nullptr;
    }
    auto* f = new Filter(Kind::splitter, demux);
    f->add_pin(PinDirection::input, "Input", MajorType::interleaved);
    f->add_pin(PinDirection::output, "DVVidOut0", MajorType::video);
    f->add_pin(PinDirection::output, "AudOut00", MajorType::audio);
    return f;
}

class Factory : public media::MediaFactory {
  public:
    Factory(DialogHost& host_, VideoSurfaces& surfaces_) : host(host_), surfaces(surfaces_) {}
    HRESULT create_instance(media::Clsid clsid, Iid iid, void** out) override {
        *out = nullptr;
        Unknown* made = nullptr;
        switch (clsid) {
            case media::Clsid::system_device_enum:
                made = static_cast<media::CreateDevEnum*>(new DevEnum);
                break;
            case media::Clsid::filter_graph:
                made = static_cast<media::GraphBuilder*>(new Graph(host, surfaces));
                break;
            case media::Clsid::capture_graph_builder:
                made = static_cast<media::CaptureGraphBuilder*>(new Builder);
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

std::unique_ptr<media::MediaFactory> make_media_factory(DialogHost& host, VideoSurfaces& surfaces) {
    gst_init(nullptr, nullptr);
    register_elements();
    return std::make_unique<Factory>(host, surfaces);
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
