#include "platform/gst/kestrel_frame_gate.h"

#include <atomic>
#include <mutex>
#include <optional>

#include "platform/capture/file_gate.h"
#include "platform/gst/dv_frame_meta.h"

GST_DEBUG_CATEGORY_STATIC(kc_frame_gate_debug);
#define GST_CAT_DEFAULT kc_frame_gate_debug

namespace kc::gst {
namespace {

struct GateState {
    std::unique_ptr<capture::FileGate> file;
    // Frames pushed in this run: their stamps count on from the stream's start. Written
    // by the gate's writes only, which the gate serialises.
    guint64 pushed = 0;
    GstPad* sink = nullptr;
    GstPad* src = nullptr;
};

}  // namespace
}  // namespace kc::gst

extern "C" {

struct KcFrameGate {
    GstElement parent;
    kc::gst::GateState* state;
};

struct KcFrameGateClass {
    GstElementClass parent_class;
};

G_DEFINE_TYPE(KcFrameGate, kc_frame_gate, GST_TYPE_ELEMENT)

}  // extern "C"

namespace kc::gst {
namespace {

GstStaticPadTemplate sink_template =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS,
                            GST_STATIC_CAPS("video/x-dv, systemstream=(boolean)true"));
GstStaticPadTemplate src_template = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-dv, systemstream=(boolean)true"));

GateState& state_of(gpointer element) {
    return *reinterpret_cast<KcFrameGate*>(element)->state;
}

void release_buffer(void* buffer) {
    gst_buffer_unref(static_cast<GstBuffer*>(buffer));
}

// Sends a frame on with a stamp that counts frames from the stream's start: the file only
// needs their order, and frames carried from the previous file's stream must not carry
// that stream's times into this one.
bool push_frame(GateState& s, const capture::Frame& frame, dv::DvSystem system) {
    const dv::FrameRate rate = dv::frame_rate(system);
    const GstClockTime period = gst_util_uint64_scale(GST_SECOND, static_cast<guint64>(rate.den),
                                                      static_cast<guint64>(rate.num));
    GstBuffer* out = gst_buffer_copy(static_cast<GstBuffer*>(frame.payload.get()));
    GST_BUFFER_PTS(out) = s.pushed * period;
    GST_BUFFER_DTS(out) = GST_BUFFER_PTS(out);
    GST_BUFFER_DURATION(out) = period;
    ++s.pushed;
    return gst_pad_push(s.src, out) == GST_FLOW_OK;
}

capture::FrameFacts facts_of(GstBuffer* buffer, std::optional<dv::DvSystem>& system) {
    capture::FrameFacts facts;
    GstMapInfo map;
    if (gst_buffer_map(buffer, &map, GST_MAP_READ)) {
        const std::span<const std::uint8_t> bytes(map.data, map.size);
        system = dv::system_of_frame_start(bytes);
        if (system && bytes.size() == dv::frame_bytes(*system)) {
            facts = capture::read_facts(bytes, *system);
        }
        gst_buffer_unmap(buffer, &map);
    }
    if (GstCustomMeta* meta = gst_buffer_get_custom_meta(buffer, dv_frame_meta_name)) {
        const GstStructure* fields = gst_custom_meta_get_structure(meta);
        gint64 value = 0;
        if (gst_structure_get_int64(fields, "lost-before", &value)) {
            facts.source_lost = value;
        }
        if (gst_structure_get_int64(fields, "track", &value)) {
            facts.track = value;
        }
    }
    return facts;
}

GstFlowReturn gate_chain(GstPad*, GstObject* parent, GstBuffer* buffer) {
    GateState& s = state_of(parent);
    std::optional<dv::DvSystem> system;
    capture::FrameFacts facts = facts_of(buffer, system);
    s.file->frame(capture::Frame{std::shared_ptr<void>(buffer, release_buffer), std::move(facts)},
                  system);
    // A frame the file could not take is counted and logged by the gate; the capture goes
    // on, so that the frames that still come are counted too.
    return GST_PAD_IS_FLUSHING(s.src) ? GST_FLOW_FLUSHING : GST_FLOW_OK;
}

gboolean gate_event(GstPad* pad, GstObject* parent, GstEvent* event) {
    GateState& s = state_of(parent);
    if (GST_EVENT_TYPE(event) == GST_EVENT_EOS) {
        // What the gate held goes into the file or to the next one, then the file is
        // finished downstream as the end of the stream reaches it, then its size can be
        // logged.
        s.file->end();
        const gboolean pushed = gst_pad_push_event(s.src, event);
        s.file->finish();
        return pushed;
    }
    return gst_pad_event_default(pad, parent, event);
}

GstStateChangeReturn gate_change_state(GstElement* element, GstStateChange transition) {
    GateState& s = state_of(element);
    if (transition == GST_STATE_CHANGE_READY_TO_PAUSED) {
        s.pushed = 0;
        std::error_code error;
        if (!s.file->start(error)) {
            GST_WARNING_OBJECT(element, "no capture log: %s", error.message().c_str());
        }
    }
    const GstStateChangeReturn ret =
        GST_ELEMENT_CLASS(kc_frame_gate_parent_class)->change_state(element, transition);
    if (transition == GST_STATE_CHANGE_PAUSED_TO_READY) {
        // Stopped without the end of the stream (an error, a lost device): the writer
        // downstream has already finished its file. Held frames can no longer be written;
        // after a split they still go to the next file.
        s.file->end();
        s.file->finish();
    }
    return ret;
}

void gate_finalize(GObject* object) {
    delete reinterpret_cast<KcFrameGate*>(object)->state;
    G_OBJECT_CLASS(kc_frame_gate_parent_class)->finalize(object);
}

}  // namespace

GstElement* make_frame_gate(std::shared_ptr<capture::Carry> carry, const std::string& file,
                            const std::string& log_path, const std::string& source) {
    auto* element = static_cast<GstElement*>(g_object_new(kc_frame_gate_get_type(), nullptr));
    GateState& s = state_of(element);
    s.file =
        std::make_unique<capture::FileGate>(std::move(carry), file, log_path, source,
                                            [&s](const capture::Frame& frame, dv::DvSystem system) {
                                                return push_frame(s, frame, system);
                                            });
    return element;
}

void frame_gate_split(GstElement* element) {
    state_of(element).file->split();
}

bool frame_gate_holds_break(GstElement* element) {
    return state_of(element).file->holds_break();
}

capture::GateCounters frame_gate_counters(GstElement* element) {
    return state_of(element).file->counters();
}

}  // namespace kc::gst

extern "C" {

static void kc_frame_gate_class_init(KcFrameGateClass* klass) {
    GST_DEBUG_CATEGORY_INIT(kc_frame_gate_debug, "kestrelframegate", 0, "Kestrel DV frame gate");
    GObjectClass* object_class = G_OBJECT_CLASS(klass);
    GstElementClass* element_class = GST_ELEMENT_CLASS(klass);
    object_class->finalize = kc::gst::gate_finalize;
    element_class->change_state = kc::gst::gate_change_state;
    gst_element_class_add_static_pad_template(element_class, &kc::gst::sink_template);
    gst_element_class_add_static_pad_template(element_class, &kc::gst::src_template);
    gst_element_class_set_static_metadata(
        element_class, "Kestrel DV frame gate", "Filter/Video",
        "Puts every DV frame of a capture into the right file once, and counts what is missing",
        "Kestrel Capture");
}

static void kc_frame_gate_init(KcFrameGate* self) {
    kc::gst::register_dv_frame_meta();
    self->state = new kc::gst::GateState;
    kc::gst::GateState& s = *self->state;
    s.sink = gst_pad_new_from_static_template(&kc::gst::sink_template, "sink");
    gst_pad_set_chain_function(s.sink, kc::gst::gate_chain);
    gst_pad_set_event_function(s.sink, kc::gst::gate_event);
    GST_PAD_SET_PROXY_CAPS(s.sink);
    gst_element_add_pad(GST_ELEMENT(self), s.sink);
    s.src = gst_pad_new_from_static_template(&kc::gst::src_template, "src");
    GST_PAD_SET_PROXY_CAPS(s.src);
    gst_element_add_pad(GST_ELEMENT(self), s.src);
}

}  // extern "C"
