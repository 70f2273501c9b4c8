#include "deck/gst/deck_source.h"

#include <gst/base/gstpushsrc.h>

#include "platform/gst/dv_frame_meta.h"

#include <atomic>
#include <memory>
#include <span>
#include <vector>

namespace kc::deck {
namespace {

struct SourceState {
    std::shared_ptr<VirtualVcr> vcr;
    std::vector<std::uint8_t> frame;
    std::uint64_t pushed = 0;
    std::atomic<bool> flushing{false};
    // The stream is to end: frames the tape has already played still go out first.
    std::atomic<bool> draining{false};
};

}  // namespace
}  // namespace kc::deck

extern "C" {

struct KcDeckSrc {
    GstPushSrc parent;
    kc::deck::SourceState* state;
};

struct KcDeckSrcClass {
    GstPushSrcClass parent_class;
};

G_DEFINE_TYPE(KcDeckSrc, kc_deck_src, GST_TYPE_PUSH_SRC)

static GstStaticPadTemplate kc_deck_src_template = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-dv, systemstream=(boolean)true"));

static KcDeckSrc* as_deck(gpointer p) {
    return reinterpret_cast<KcDeckSrc*>(p);
}

static void kc_deck_src_finalize(GObject* object) {
    delete as_deck(object)->state;
    G_OBJECT_CLASS(kc_deck_src_parent_class)->finalize(object);
}

static GstCaps* kc_deck_src_get_caps(GstBaseSrc* src, GstCaps* filter) {
    kc::deck::SourceState* s = as_deck(src)->state;
    GstCaps* caps = nullptr;
    if (s->vcr) {
        const kc::deck::FrameRate rate = kc::deck::frame_rate(s->vcr->system());
        caps = gst_caps_new_simple("video/x-dv", "systemstream", G_TYPE_BOOLEAN, TRUE, "framerate",
                                   GST_TYPE_FRACTION, rate.num, rate.den, nullptr);
    } else {
        caps = gst_static_pad_template_get_caps(&kc_deck_src_template);
    }
    if (filter != nullptr) {
        GstCaps* both = gst_caps_intersect_full(filter, caps, GST_CAPS_INTERSECT_FIRST);
        gst_caps_unref(caps);
        caps = both;
    }
    return caps;
}

static gboolean kc_deck_src_start(GstBaseSrc* src) {
    kc::deck::SourceState* s = as_deck(src)->state;
    if (!s->vcr) {
        GST_ELEMENT_ERROR(src, RESOURCE, NOT_FOUND, ("The virtual DV deck has no tape."),
                          (nullptr));
        return FALSE;
    }
    s->pushed = 0;
    s->flushing = false;
    s->draining = false;
    s->vcr->start_stream();
    return TRUE;
}

static gboolean kc_deck_src_stop(GstBaseSrc* src) {
    kc::deck::SourceState* s = as_deck(src)->state;
    if (s->vcr) {
        s->vcr->stop_stream();
    }
    return TRUE;
}

static gboolean kc_deck_src_unlock(GstBaseSrc* src) {
    kc::deck::SourceState* s = as_deck(src)->state;
    s->flushing = true;
    if (s->vcr) {
        s->vcr->cancel_waits();
    }
    return TRUE;
}

// The end of the stream asked for (a capture stopping): a frame the tape played before
// it, that the streaming thread has not taken yet, would be lost without a count; the
// stream ends once those are out.
static gboolean kc_deck_src_send_event(GstElement* element, GstEvent* event) {
    kc::deck::SourceState* s = as_deck(element)->state;
    if (GST_EVENT_TYPE(event) == GST_EVENT_EOS && s->vcr) {
        s->draining = true;
        s->vcr->cancel_waits();
        gst_event_unref(event);
        return TRUE;
    }
    return GST_ELEMENT_CLASS(kc_deck_src_parent_class)->send_event(element, event);
}

static gboolean kc_deck_src_unlock_stop(GstBaseSrc* src) {
    as_deck(src)->state->flushing = false;
    return TRUE;
}

static GstFlowReturn kc_deck_src_create(GstPushSrc* src, GstBuffer** out) {
    kc::deck::SourceState* s = as_deck(src)->state;
    const kc::deck::FrameRate rate = kc::deck::frame_rate(s->vcr->system());
    const bool paced = s->vcr->pacing() == kc::deck::Pacing::real_time;
    kc::deck::FetchedFrame info;
    // A tape in memory is handed to the pipeline where it lies; one read from a file is
    // copied out of it.
    const bool in_memory = s->vcr->tape().in_memory();
    std::span<const std::uint8_t> view;
    for (;;) {
        if (s->flushing) {
            return GST_FLOW_FLUSHING;
        }
        // Unpaced, every fetch plays on: there is nothing already played to drain.
        const bool draining = s->draining;
        if (draining && !paced) {
            return GST_FLOW_EOS;
        }
        const std::int64_t wait_ms = draining ? 0 : 200;
        const kc::deck::FetchStatus status = in_memory
                                                 ? s->vcr->wait_frame_view(view, info, wait_ms)
                                                 : s->vcr->wait_frame(s->frame, info, wait_ms);
        if (status == kc::deck::FetchStatus::frame) {
            break;
        }
        if (status == kc::deck::FetchStatus::device_lost) {
            GST_ELEMENT_ERROR(src, RESOURCE, NOT_FOUND, ("The DV device has been disconnected."),
                              ("virtual deck lost"));
            return GST_FLOW_ERROR;
        }
        if (draining) {
            return GST_FLOW_EOS;  // every frame played so far is out
        }
        if (status == kc::deck::FetchStatus::cancelled) {
            if (s->draining) {
                continue;
            }
            return GST_FLOW_FLUSHING;
        }
        if (!paced && status == kc::deck::FetchStatus::no_picture &&
            s->vcr->state().mode == kc::deck::TransportMode::stop &&
            s->vcr->state().frame() >= s->vcr->tape().frame_count() - 1) {
            // Unpaced, a tape played to its end ends the stream, so that a test or a
            // benchmark finishes when the tape does.
            return GST_FLOW_EOS;
        }
    }
    GstBuffer* buffer = nullptr;
    if (in_memory) {
        // The buffer keeps the image (and so its mapping) alive until the last element
        // lets go of the frame, which may be after the deck has been closed.
        auto* keep = new std::shared_ptr<const kc::deck::TapeImage>(s->vcr->tape_image());
        buffer = gst_buffer_new_wrapped_full(
            GST_MEMORY_FLAG_READONLY, const_cast<std::uint8_t*>(view.data()), view.size(), 0,
            view.size(), keep,
            [](gpointer p) { delete static_cast<std::shared_ptr<const kc::deck::TapeImage>*>(p); });
    } else {
        buffer = gst_buffer_new_memdup(s->frame.data(), s->frame.size());
    }
    const GstClockTime duration = gst_util_uint64_scale(GST_SECOND, static_cast<guint64>(rate.den),
                                                        static_cast<guint64>(rate.num));
    if (!paced) {
        GST_BUFFER_PTS(buffer) = gst_util_uint64_scale(
            s->pushed * GST_SECOND, static_cast<guint64>(rate.den), static_cast<guint64>(rate.num));
        GST_BUFFER_DTS(buffer) = GST_BUFFER_PTS(buffer);
    }
    GST_BUFFER_DURATION(buffer) = duration;
    // The capture path counts what the deck lost where it lost it, and logs the track.
    GstCustomMeta* meta = gst_buffer_add_custom_meta(buffer, kc::gst::dv_frame_meta_name);
    GstStructure* facts = gst_custom_meta_get_structure(meta);
    gst_structure_set(facts, "lost-before", G_TYPE_INT64, static_cast<gint64>(info.dropped_before),
                      "track", G_TYPE_INT64,
                      static_cast<gint64>(s->vcr->tape().track_of_frame(info.tape_frame)), nullptr);
    if (info.dropped_before > 0) {
        GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
    }
    GST_BUFFER_OFFSET(buffer) = s->pushed;
    GST_BUFFER_OFFSET_END(buffer) = s->pushed + 1;
    if (s->pushed == 0) {
        GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
    }
    ++s->pushed;
    *out = buffer;
    return GST_FLOW_OK;
}

static void kc_deck_src_class_init(KcDeckSrcClass* klass) {
    GObjectClass* object_class = G_OBJECT_CLASS(klass);
    GstElementClass* element_class = GST_ELEMENT_CLASS(klass);
    GstBaseSrcClass* base_class = GST_BASE_SRC_CLASS(klass);
    GstPushSrcClass* push_class = GST_PUSH_SRC_CLASS(klass);
    object_class->finalize = kc_deck_src_finalize;
    gst_element_class_add_static_pad_template(element_class, &kc_deck_src_template);
    gst_element_class_set_static_metadata(element_class, "Virtual DV deck", "Source/Video",
                                          "DV frames played from a tape image", "Kestrel Capture");
    element_class->send_event = kc_deck_src_send_event;
    base_class->get_caps = kc_deck_src_get_caps;
    base_class->start = kc_deck_src_start;
    base_class->stop = kc_deck_src_stop;
    base_class->unlock = kc_deck_src_unlock;
    base_class->unlock_stop = kc_deck_src_unlock_stop;
    push_class->create = kc_deck_src_create;
}

static void kc_deck_src_init(KcDeckSrc* self) {
    kc::gst::register_dv_frame_meta();
    self->state = new kc::deck::SourceState;
    gst_base_src_set_format(GST_BASE_SRC(self), GST_FORMAT_TIME);
}

}  // extern "C"

namespace kc::deck {

GstElement* make_deck_source(std::shared_ptr<VirtualVcr> vcr) {
    auto* element = static_cast<GstElement*>(g_object_new(kc_deck_src_get_type(), nullptr));
    const bool paced = vcr->pacing() == Pacing::real_time;
    as_deck(element)->state->vcr = std::move(vcr);
    gst_base_src_set_live(GST_BASE_SRC(element), paced);
    gst_base_src_set_do_timestamp(GST_BASE_SRC(element), paced);
    return element;
}

}  // namespace kc::deck
