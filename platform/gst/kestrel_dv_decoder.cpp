#include "platform/gst/kestrel_dv_decoder.h"

#include <gst/video/video-info.h>

#include <algorithm>
#include <optional>
#include <span>

#include "dv/dv_small_image.h"

extern "C" {

struct KcDvDcDecoder {
    GstElement parent;
    GstPad* sink;
    GstPad* src;
    // The picture size of the caps sent last; 0 before the first.
    int width;
    int height;
    // The tape's pixel shape, from the frames' own caps; 0 when they gave none.
    int par_n;
    int par_d;
    // A segment that came before the picture's caps could be sent: it follows them.
    GstEvent* held_segment;
    // Pixels a side per DCT block (1, 2 or 4); set from any thread, read per frame.
    gint detail;
};

struct KcDvDcDecoderClass {
    GstElementClass parent_class;
};

G_DEFINE_TYPE(KcDvDcDecoder, kc_dv_dc_decoder, GST_TYPE_ELEMENT)

struct KcDvDecoder {
    GstBin parent;
    GstElement* route;  // output-selector: which decoder gets the frames
    GstElement* pick;   // input-selector: whose pictures go on
    GstElement* picture;
    GstElement* small;
    GstPad* to_picture;
    GstPad* to_small;
    GstPad* from_picture;
    GstPad* from_small;
    bool libav;
    int resolution;  // an index into resolution_names
};

struct KcDvDecoderClass {
    GstBinClass parent_class;
};

G_DEFINE_TYPE(KcDvDecoder, kc_dv_decoder, GST_TYPE_BIN)

}  // extern "C"

namespace kc::gst {
namespace {

constexpr const char* resolution_names[] = {"full", "half", "quarter", "DC only"};
constexpr int dc_only = 3;
// Pixels a side per DCT block of each resolution our small-picture decoder gives.
constexpr int block_side[] = {8, 4, 2, 1};
enum { property_detail = 1 };

GstStaticPadTemplate dc_sink_template =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-dv"));
GstStaticPadTemplate dc_src_template = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS,
    GST_STATIC_CAPS("video/x-raw, format=(string){ I420, Y42B }, width=(int)[1, 2147483647], "
                    "height=(int)[1, 2147483647], framerate=(fraction)[0/1, 2147483647/1]"));
GstStaticPadTemplate bin_sink_template =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-dv"));
GstStaticPadTemplate bin_src_template =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-raw"));

KcDvDcDecoder* dc_of(GstObject* parent) {
    return reinterpret_cast<KcDvDcDecoder*>(parent);
}

// The small picture's layout: 4:2:0 on 625-50, 4:2:2 on 525-60.
const char* format_name(dv::DvSystem system) {
    return dv::colour_rows(system) == 2 ? "I420" : "Y42B";
}

void send_caps(KcDvDcDecoder& self, int width, int height, dv::DvSystem system) {
    const dv::FrameRate rate = dv::frame_rate(system);
    GstCaps* caps = gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, format_name(system),
                                        "width", G_TYPE_INT, width, "height", G_TYPE_INT, height,
                                        "framerate", GST_TYPE_FRACTION, static_cast<int>(rate.num),
                                        static_cast<int>(rate.den), nullptr);
    if (self.par_n > 0 && self.par_d > 0) {
        gst_caps_set_simple(caps, "pixel-aspect-ratio", GST_TYPE_FRACTION, self.par_n, self.par_d,
                            nullptr);
    }
    const bool sent = gst_pad_push_event(self.src, gst_event_new_caps(caps)) == TRUE;
    gst_caps_unref(caps);
    // Caps not taken are sent again with the next frame.
    self.width = sent ? width : 0;
    self.height = sent ? height : 0;
}

// The small picture of `frame` into `out`, a new buffer. OK with no buffer for a frame cut
// short or without its header: the preview shows the next whole one.
GstFlowReturn decode(KcDvDcDecoder& self, std::span<const std::uint8_t> frame, GstBuffer*& out) {
    out = nullptr;
    const std::optional<dv::DvSystem> system = dv::system_of_frame_start(frame);
    if (!system || frame.size() < dv::frame_bytes(*system)) {
        return GST_FLOW_OK;
    }
    const auto detail = static_cast<dv::Detail>(g_atomic_int_get(&self.detail));
    const int width = dv::small_image_width(*system, detail);
    const int height = dv::small_image_height(*system, detail);
    if (width != self.width || height != self.height) {
        send_caps(self, width, height, *system);
    }
    GstVideoInfo info;
    gst_video_info_set_format(&info, gst_video_format_from_string(format_name(*system)),
                              static_cast<guint>(width), static_cast<guint>(height));
    out = gst_buffer_new_allocate(nullptr, GST_VIDEO_INFO_SIZE(&info), nullptr);
    GstMapInfo map;
    if (out == nullptr || !gst_buffer_map(out, &map, GST_MAP_WRITE)) {
        if (out) {
            gst_buffer_unref(out);
            out = nullptr;
        }
        return GST_FLOW_ERROR;
    }
    dv::YuvPlanes planes{};
    for (int p = 0; p < 3; ++p) {
        planes.plane[p] = map.data + GST_VIDEO_INFO_PLANE_OFFSET(&info, p);
        planes.stride[p] = static_cast<std::size_t>(GST_VIDEO_INFO_PLANE_STRIDE(&info, p));
    }
    dv::decode_small_image(frame, *system, detail, planes);
    gst_buffer_unmap(out, &map);
    return GST_FLOW_OK;
}

GstFlowReturn dc_chain(GstPad*, GstObject* parent, GstBuffer* in) {
    KcDvDcDecoder& self = *dc_of(parent);
    GstMapInfo map;
    if (!gst_buffer_map(in, &map, GST_MAP_READ)) {
        gst_buffer_unref(in);
        return GST_FLOW_ERROR;
    }
    GstBuffer* out = nullptr;
    const GstFlowReturn decoded = decode(self, {map.data, map.size}, out);
    gst_buffer_unmap(in, &map);
    if (out == nullptr) {
        gst_buffer_unref(in);
        return decoded;
    }
    if (self.held_segment) {
        gst_pad_push_event(self.src, self.held_segment);
        self.held_segment = nullptr;
    }
    gst_buffer_copy_into(out, in, GST_BUFFER_COPY_TIMESTAMPS, 0, static_cast<gsize>(-1));
    gst_buffer_unref(in);
    return gst_pad_push(self.src, out);
}

gboolean dc_sink_event(GstPad* pad, GstObject* parent, GstEvent* event) {
    KcDvDcDecoder& self = *dc_of(parent);
    if (GST_EVENT_TYPE(event) == GST_EVENT_SEGMENT && self.width == 0) {
        gst_event_replace(&self.held_segment, event);
        gst_event_unref(event);
        return TRUE;
    }
    if (GST_EVENT_TYPE(event) != GST_EVENT_CAPS) {
        return gst_pad_event_default(pad, parent, event);
    }
    // The frames' caps say nothing the picture's caps need but the pixel shape; the
    // picture's own go out with the next frame, once its size is known.
    GstCaps* caps = nullptr;
    gst_event_parse_caps(event, &caps);
    const GstStructure* s = caps ? gst_caps_get_structure(caps, 0) : nullptr;
    int n = 0;
    int d = 0;
    if (s && gst_structure_get_fraction(s, "pixel-aspect-ratio", &n, &d)) {
        self.par_n = n;
        self.par_d = d;
    }
    self.width = 0;
    gst_event_unref(event);
    return TRUE;
}

KcDvDecoder* decoder_of(GstElement* element) {
    if (element == nullptr || !G_TYPE_CHECK_INSTANCE_TYPE(element, kc_dv_decoder_get_type())) {
        return nullptr;
    }
    return reinterpret_cast<KcDvDecoder*>(element);
}

GstPad* request(GstElement* selector, const char* name) {
    return gst_element_request_pad_simple(selector, name);
}

void link(GstPad* from, GstElement* to, const char* pad) {
    GstPad* sink = gst_element_get_static_pad(to, pad);
    gst_pad_link(from, sink);
    gst_object_unref(sink);
}

void link(GstElement* from, const char* pad, GstPad* to) {
    GstPad* src = gst_element_get_static_pad(from, pad);
    gst_pad_link(src, to);
    gst_object_unref(src);
}

void ghost(GstElement* bin, GstElement* child, const char* name, GstStaticPadTemplate* templ) {
    GstPad* target = gst_element_get_static_pad(child, name);
    GstPadTemplate* pad_template = gst_static_pad_template_get(templ);
    gst_element_add_pad(bin, gst_ghost_pad_new_from_template(name, target, pad_template));
    gst_object_unref(pad_template);
    gst_object_unref(target);
}

}  // namespace

bool register_dv_decoders() {
    return gst_element_register(nullptr, "kestreldvdcdec", GST_RANK_NONE,
                                kc_dv_dc_decoder_get_type()) == TRUE &&
           gst_element_register(nullptr, "kestreldvdec", GST_RANK_NONE, kc_dv_decoder_get_type()) ==
               TRUE;
}

std::vector<std::string> dv_decoder_resolutions(GstElement* element) {
    const KcDvDecoder* self = decoder_of(element);
    if (self == nullptr) {
        return {};
    }
    return {std::begin(resolution_names), std::end(resolution_names)};
}

std::string dv_decoder_resolution(GstElement* element) {
    const KcDvDecoder* self = decoder_of(element);
    if (self == nullptr) {
        return "";
    }
    if (self->resolution != 0 || !self->libav) {
        return resolution_names[self->resolution];
    }
    // The full decoder's own settings page may have changed its scale since.
    int lowres = 0;
    g_object_get(self->picture, "lowres", &lowres, nullptr);
    return resolution_names[std::clamp(lowres, 0, dc_only - 1)];
}

bool set_dv_decoder_resolution(GstElement* element, const std::string& resolution) {
    KcDvDecoder* self = decoder_of(element);
    if (self == nullptr) {
        return false;
    }
    int chosen = -1;
    for (const std::string& offered : dv_decoder_resolutions(element)) {
        if (offered == resolution) {
            for (int i = 0; i <= dc_only; ++i) {
                if (resolution == resolution_names[i]) {
                    chosen = i;
                }
            }
        }
    }
    if (chosen < 0) {
        return false;
    }
    if (chosen == 0 && self->libav) {
        g_object_set(self->picture, "lowres", 0, nullptr);
    }
    const bool small = chosen != 0;
    if (small) {
        g_object_set(self->small, "detail", block_side[chosen], nullptr);
    }
    // Where the frames go first, then whose pictures are taken: a frame already in the
    // decoder left behind is dropped, not shown after the new decoder's first.
    g_object_set(self->route, "active-pad", small ? self->to_small : self->to_picture, nullptr);
    g_object_set(self->pick, "active-pad", small ? self->from_small : self->from_picture, nullptr);
    self->resolution = chosen;
    return true;
}

GstElement* dv_decoder_picture_decoder(GstElement* element) {
    KcDvDecoder* self = decoder_of(element);
    return self ? self->picture : nullptr;
}

}  // namespace kc::gst

extern "C" {

static void kc_dv_dc_decoder_finalize(GObject* object) {
    auto* self = reinterpret_cast<KcDvDcDecoder*>(object);
    gst_event_replace(&self->held_segment, nullptr);
    G_OBJECT_CLASS(kc_dv_dc_decoder_parent_class)->finalize(object);
}

static void kc_dv_dc_decoder_set_property(GObject* object, guint id, const GValue* value,
                                          GParamSpec* spec) {
    auto* self = reinterpret_cast<KcDvDcDecoder*>(object);
    if (id != kc::gst::property_detail) {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
        return;
    }
    const int side = g_value_get_int(value);
    g_atomic_int_set(&self->detail, side >= 4 ? 4 : side >= 2 ? 2 : 1);
}

static void kc_dv_dc_decoder_get_property(GObject* object, guint id, GValue* value,
                                          GParamSpec* spec) {
    auto* self = reinterpret_cast<KcDvDcDecoder*>(object);
    if (id != kc::gst::property_detail) {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
        return;
    }
    g_value_set_int(value, g_atomic_int_get(&self->detail));
}

static void kc_dv_dc_decoder_class_init(KcDvDcDecoderClass* klass) {
    GObjectClass* object_class = G_OBJECT_CLASS(klass);
    object_class->finalize = kc_dv_dc_decoder_finalize;
    object_class->set_property = kc_dv_dc_decoder_set_property;
    object_class->get_property = kc_dv_dc_decoder_get_property;
    g_object_class_install_property(
        object_class, kc::gst::property_detail,
        g_param_spec_int("detail", "Detail", "Pixels a side per 8 x 8 DCT block: 1, 2 or 4", 1, 4,
                         1, static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS)));
    GstElementClass* element_class = GST_ELEMENT_CLASS(klass);
    gst_element_class_add_static_pad_template(element_class, &kc::gst::dc_sink_template);
    gst_element_class_add_static_pad_template(element_class, &kc::gst::dc_src_template);
    gst_element_class_set_static_metadata(
        element_class, "Kestrel DV small-picture decoder", "Codec/Decoder/Video",
        "An eighth, a quarter or half of a DV frame from its lowest frequencies",
        "Kestrel Capture");
}

static void kc_dv_dc_decoder_init(KcDvDcDecoder* self) {
    self->sink = gst_pad_new_from_static_template(&kc::gst::dc_sink_template, "sink");
    gst_pad_set_chain_function(self->sink, kc::gst::dc_chain);
    gst_pad_set_event_function(self->sink, kc::gst::dc_sink_event);
    gst_element_add_pad(GST_ELEMENT(self), self->sink);
    self->src = gst_pad_new_from_static_template(&kc::gst::dc_src_template, "src");
    gst_pad_use_fixed_caps(self->src);
    gst_element_add_pad(GST_ELEMENT(self), self->src);
    self->detail = 1;
}

static void kc_dv_decoder_finalize(GObject* object) {
    auto* self = reinterpret_cast<KcDvDecoder*>(object);
    for (GstPad* pad : {self->to_picture, self->to_small, self->from_picture, self->from_small}) {
        gst_object_unref(pad);
    }
    G_OBJECT_CLASS(kc_dv_decoder_parent_class)->finalize(object);
}

static void kc_dv_decoder_class_init(KcDvDecoderClass* klass) {
    G_OBJECT_CLASS(klass)->finalize = kc_dv_decoder_finalize;
    GstElementClass* element_class = GST_ELEMENT_CLASS(klass);
    gst_element_class_add_static_pad_template(element_class, &kc::gst::bin_sink_template);
    gst_element_class_add_static_pad_template(element_class, &kc::gst::bin_src_template);
    gst_element_class_set_static_metadata(
        element_class, "Kestrel DV preview decoder", "Codec/Decoder/Video",
        "DV video at a display resolution that can change while it plays", "Kestrel Capture");
}

static void kc_dv_decoder_init(KcDvDecoder* self) {
    using namespace kc::gst;
    GstElement* bin = GST_ELEMENT(self);
    self->libav = gst_element_factory_find("avdec_dvvideo") != nullptr;
    self->route = gst_element_factory_make("output-selector", "route");
    self->pick = gst_element_factory_make("input-selector", "pick");
    self->picture = gst_element_factory_make(self->libav ? "avdec_dvvideo" : "dvdec", "picture");
    self->small =
        static_cast<GstElement*>(g_object_new(kc_dv_dc_decoder_get_type(), "name", "dc", nullptr));
    // Only the decoder in use is asked what it takes; the two take the same frames but give
    // different pictures, and their pictures never meet. One streaming thread drives both
    // branches, so the idle one must never be waited for.
    gst_util_set_object_arg(G_OBJECT(self->route), "pad-negotiation-mode", "active");
    g_object_set(self->pick, "sync-streams", FALSE, nullptr);
    gst_bin_add_many(GST_BIN(bin), self->route, self->picture, self->small, self->pick, nullptr);
    self->to_picture = request(self->route, "src_%u");
    self->to_small = request(self->route, "src_%u");
    self->from_picture = request(self->pick, "sink_%u");
    self->from_small = request(self->pick, "sink_%u");
    link(self->to_picture, self->picture, "sink");
    link(self->to_small, self->small, "sink");
    link(self->picture, "src", self->from_picture);
    link(self->small, "src", self->from_small);
    ghost(bin, self->route, "sink", &bin_sink_template);
    ghost(bin, self->pick, "src", &bin_src_template);
    g_object_set(self->route, "active-pad", self->to_picture, nullptr);
    g_object_set(self->pick, "active-pad", self->from_picture, nullptr);
    self->resolution = 0;
}

}  // extern "C"
