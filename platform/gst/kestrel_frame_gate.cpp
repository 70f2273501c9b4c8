#include "platform/gst/kestrel_frame_gate.h"

#include <atomic>
#include <mutex>
#include <optional>

#include "platform/capture/capture_log.h"
#include "platform/gst/dv_frame_meta.h"

GST_DEBUG_CATEGORY_STATIC(kc_frame_gate_debug);
#define GST_CAT_DEFAULT kc_frame_gate_debug

namespace kc::gst {
namespace {

struct GateState {
    // Guards the gate's making (at the first frame) against split and counters from the
    // user-interface thread.
    std::mutex lock;
    std::shared_ptr<capture::Carry> carry;
    std::string file;
    std::string log_path;
    std::string source;
    std::unique_ptr<capture::CaptureLog> log;
    std::unique_ptr<capture::FrameGate> gate;
    // The counts of the run that ended last, read after the capture stopped.
    capture::GateCounters final_counters;
    bool split_asked = false;
    bool ended = false;
    // Frames pushed in this run: their stamps count on from the stream's start.
    guint64 pushed = 0;
    GstClockTime period = 0;
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
bool push_frame(GateState& s, const capture::Frame& frame) {
    GstBuffer* out = gst_buffer_copy(static_cast<GstBuffer*>(frame.payload.get()));
    GST_BUFFER_PTS(out) = s.pushed * s.period;
    GST_BUFFER_DTS(out) = GST_BUFFER_PTS(out);
    GST_BUFFER_DURATION(out) = s.period;
    ++s.pushed;
    return gst_pad_push(s.src, out) == GST_FLOW_OK;
}

// Makes the gate once the stream's DV system is known (from its first frame, or from what
// the previous file handed over). Call with the lock held.
void make_gate(GateState& s, dv::DvSystem system) {
    const dv::FrameRate rate = dv::frame_rate(system);
    s.period = gst_util_uint64_scale(GST_SECOND, static_cast<guint64>(rate.den),
                                     static_cast<guint64>(rate.num));
    if (s.log) {
        s.log->set_system(system);
    }
    capture::GateOptions options;
    options.system = system;
    s.gate = std::make_unique<capture::FrameGate>(
        options, [&s](const capture::Frame& frame) { return push_frame(s, frame); }, s.carry,
        s.log.get());
    if (s.split_asked) {
        s.gate->split();
    }
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
    capture::FrameGate* gate = nullptr;
    {
        std::lock_guard lock(s.lock);
        if (!s.gate) {
            make_gate(s, system.value_or(dv::DvSystem::pal_625_50));
        }
        gate = s.gate.get();
    }
    gate->frame(capture::Frame{std::shared_ptr<void>(buffer, release_buffer), std::move(facts)});
    // A frame the file could not take is counted and logged by the gate; the capture goes
    // on, so that the frames that still come are counted too.
    return GST_PAD_IS_FLUSHING(s.src) ? GST_FLOW_FLUSHING : GST_FLOW_OK;
}

// The end of the stream: what the gate held goes into the file or to the next one, then
// the file is finished downstream, then its size can be logged.
void end_stream(GateState& s) {
    capture::FrameGate* gate = nullptr;
    {
        std::lock_guard lock(s.lock);
        if (s.ended) {
            return;
        }
        s.ended = true;
        if (!s.gate) {
            // A file with no frame of its own may still open with frames carried to it.
            std::optional<dv::DvSystem> carried;
            if (s.carry) {
                std::lock_guard carry_lock(s.carry->lock);
                if (s.carry->pending) {
                    carried = s.carry->system;
                }
            }
            make_gate(s, carried.value_or(dv::DvSystem::pal_625_50));
        }
        gate = s.gate.get();
    }
    gate->end();
}

void finish_log(GateState& s) {
    std::lock_guard lock(s.lock);
    if (s.gate) {
        s.gate->finish_log();
    } else if (s.log) {
        s.log->finish(std::nullopt, capture::GateCounters{});
    }
}

gboolean gate_event(GstPad* pad, GstObject* parent, GstEvent* event) {
    GateState& s = state_of(parent);
    if (GST_EVENT_TYPE(event) == GST_EVENT_EOS) {
        end_stream(s);
        const gboolean pushed = gst_pad_push_event(s.src, event);
        // The writer finishes its file as the end of the stream reaches it.
        finish_log(s);
        return pushed;
    }
    return gst_pad_event_default(pad, parent, event);
}

GstStateChangeReturn gate_change_state(GstElement* element, GstStateChange transition) {
    GateState& s = state_of(element);
    if (transition == GST_STATE_CHANGE_READY_TO_PAUSED) {
        std::lock_guard lock(s.lock);
        s.gate.reset();
        s.final_counters = {};
        s.ended = false;
        s.split_asked = false;
        s.pushed = 0;
        s.log.reset();
        if (!s.log_path.empty()) {
            std::error_code error;
            s.log = capture::CaptureLog::open(s.log_path, s.file, s.source, error);
            if (!s.log) {
                GST_WARNING_OBJECT(element, "no capture log at %s: %s", s.log_path.c_str(),
                                   error.message().c_str());
            }
        }
    }
    const GstStateChangeReturn ret =
        GST_ELEMENT_CLASS(kc_frame_gate_parent_class)->change_state(element, transition);
    if (transition == GST_STATE_CHANGE_PAUSED_TO_READY) {
        // Stopped without the end of the stream (an error, a lost device): the writer
        // downstream has already finished its file. Held frames can no longer be written;
        // after a split they still go to the next file.
        end_stream(s);
        finish_log(s);
        std::lock_guard lock(s.lock);
        if (s.gate) {
            s.final_counters = s.gate->counters();
        }
        s.gate.reset();
        s.log.reset();
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
    s.carry = std::move(carry);
    s.file = file;
    s.log_path = log_path;
    s.source = source;
    return element;
}

void frame_gate_split(GstElement* element) {
    GateState& s = state_of(element);
    std::lock_guard lock(s.lock);
    s.split_asked = true;
    if (s.gate) {
        s.gate->split();
    }
}

bool frame_gate_holds_break(GstElement* element) {
    GateState& s = state_of(element);
    std::lock_guard lock(s.lock);
    return s.gate && s.gate->holds_break();
}

capture::GateCounters frame_gate_counters(GstElement* element) {
    GateState& s = state_of(element);
    std::lock_guard lock(s.lock);
    if (s.gate) {
        return s.gate->counters();
    }
    capture::GateCounters counters = s.final_counters;
    // Before its first frame, a file that will not be split is owed what the previous one
    // handed over: it is written at the latest when the stream ends, so the file is not
    // too short to keep.
    if (s.carry && !s.split_asked && !s.ended) {
        std::lock_guard carry_lock(s.carry->lock);
        if (s.carry->pending) {
            counters.written += static_cast<std::int64_t>(s.carry->frames.size());
        }
    }
    return counters;
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
