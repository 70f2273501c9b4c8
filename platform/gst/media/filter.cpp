// Filters and their pins, and the filters a graph is built from: sources, compressors and
// the DV splitter. A filter owns the element (or bin) that does its work; the graph links
// those elements as pins are connected.
#include <string>
#include <utility>
#include <vector>

#include "platform/gst/kestrel_frame_gate.h"
#include "platform/gst/media/media_internal.h"

namespace kc::gst::detail {
namespace {

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

}  // namespace

HRESULT PinImpl::connected_to(media::Pin** out) {
    if (peer == nullptr) {
        *out = nullptr;
        return VFW_E_NOT_CONNECTED;
    }
    peer->add_ref();
    *out = peer;
    return S_OK;
}

HRESULT PinImpl::query_direction(PinDirection& d) {
    d = direction;
    return S_OK;
}

Filter::Filter(Kind kind_, GstElement* element_) : kind(kind_), element(element_) {
    if (element) {
        gst_object_ref_sink(element);
    }
}

Filter::~Filter() {
    if (capture_gate) {
        gst_object_unref(capture_gate);
    }
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

HRESULT Filter::query_interface(Iid iid, void** out) {
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
            // While a DV capture runs, its gate counts what reaches the file and what went
            // missing on the way, the source's own losses included.
            if (capture_gate) {
                return give(static_cast<media::DroppedFrames*>(this), out);
            }
            if (control && succeeded(control->query_interface(iid, out))) {
                return S_OK;
            }
            if (kind == Kind::source || kind == Kind::audio_source) {
                return give(static_cast<media::DroppedFrames*>(this), out);
            }
            break;
        case Iid::scene_split:
            if (capture_gate) {
                return give(static_cast<media::SceneSplit*>(this), out);
            }
            break;
        case Iid::specify_property_pages:
            // Pages show an element's settings; the DV writer's stand-in file writer has
            // none of its own.
            if (element) {
                return give(static_cast<media::SpecifyPropertyPages*>(this), out);
            }
            break;
        default:
            break;
    }
    return E_NOINTERFACE;
}

HRESULT Filter::put_mode(int mode) {
    if (!dv_writer) {
        // avimux interleaves by time on its own and has no such setting.
        return S_FALSE;
    }
    g_object_set(element, "interleave", mode, nullptr);
    return S_OK;
}

HRESULT Filter::get_cur_file(std::string& path) {
    if (file.empty()) {
        return E_FAIL;
    }
    path = file;
    return S_OK;
}

HRESULT Filter::get_num_dropped(long* count) {
    *count = capture_gate ? static_cast<long>(frame_gate_counters(capture_gate).dropped())
                          : dropped.load();
    return S_OK;
}

HRESULT Filter::get_num_not_dropped(long* count) {
    *count = capture_gate ? static_cast<long>(frame_gate_counters(capture_gate).written)
                          : delivered.load();
    return S_OK;
}

HRESULT Filter::split_at_break() {
    if (!capture_gate) {
        return E_UNEXPECTED;
    }
    frame_gate_split(capture_gate);
    return S_OK;
}

HRESULT Filter::get_break_held(long* held) {
    if (!capture_gate) {
        return E_UNEXPECTED;
    }
    *held = frame_gate_holds_break(capture_gate) ? media::OATRUE : 0;
    return S_OK;
}

PinImpl* Filter::add_pin(PinDirection d, std::string name, MajorType type) {
    pins.push_back(std::make_unique<PinImpl>(*this, d, std::move(name), type));
    return pins.back().get();
}

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

namespace {

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

}  // namespace

HRESULT Filter::enum_pins(media::EnumPins** out) {
    *out = new PinList(*this);
    return S_OK;
}

GstElement* make(const char* factory, const char* name) {
    GstElement* e = gst_element_factory_make(factory, name);
    if (e == nullptr) {
        g_warning("GStreamer element \"%s\" is missing", factory);
    }
    return e;
}

namespace {

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

}  // namespace

Filter* make_filter_from_device(GstDevice* device, bool audio) {
    Filter* f = make_source(gst_device_create_element(device, nullptr),
                            audio ? Kind::audio_source : Kind::source, false);
    if (f != nullptr) {
        gchar* name = gst_device_get_display_name(device);
        f->friendly_name = name ? name : "";
        g_free(name);
    }
    return f;
}

namespace {

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

}  // namespace

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
        f->friendly_name = device->friendly_name();
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

}  // namespace kc::gst::detail
