// The preview renderer: the default renderers a preview request gets when it names no
// sink. Video goes through an appsink to the surface of the pane that owns the video
// window, so that the picture is painted by the dialog host, not in a window of
// GStreamer's own.
#include <gst/app/gstappsink.h>

#include <algorithm>
#include <cstddef>
#include <mutex>

#include "platform/gst/media/media_internal.h"

namespace kc::gst::detail {
namespace {

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
        gst_structure_get_int(s, "height", &height) && width > 0 && height > 0) {
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

}  // namespace

void set_scale(VideoOut& out) {
    if (out.caps == nullptr) {
        return;
    }
    // The renderer never enlarges: the pane's surface scales what it is given, and a
    // frame decoded at a lower resolution is painted up from its own size, which costs
    // the conversion nothing. So the frame is the pane's size, or the decoded size where
    // that is smaller.
    int width = out.width;
    int height = out.height;
    if (out.decoded_width > 0 && out.decoded_height > 0) {
        width = width > 0 ? std::min(width, out.decoded_width) : out.decoded_width;
        height = height > 0 ? std::min(height, out.decoded_height) : out.decoded_height;
    }
    GstCaps* caps = gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "BGRx", nullptr);
    if (width > 0 && height > 0) {
        gst_caps_set_simple(caps, "width", G_TYPE_INT, width, "height", G_TYPE_INT, height,
                            nullptr);
    }
    g_object_set(out.caps, "caps", caps, nullptr);
    gst_caps_unref(caps);
}

void drop_scale(VideoOut& out, GstElement* renderer) {
    std::lock_guard guard(out.lock);
    if (out.caps && gst_object_has_as_ancestor(GST_OBJECT(out.caps), GST_OBJECT(renderer))) {
        gst_object_unref(out.caps);
        out.caps = nullptr;
        out.decoded_width = 0;
        out.decoded_height = 0;
    }
}

namespace {

const char* audio_sink_factory() {
    const char* chosen = g_getenv("KESTREL_AUDIO_SINK");
    return chosen && *chosen ? chosen : "autoaudiosink";
}

// The size of the frames that reach the scaler, as each new format arrives: it bounds
// the size the renderer asks for.
GstPadProbeReturn note_decoded_size(GstPad*, GstPadProbeInfo* info, gpointer data) {
    GstEvent* event = GST_PAD_PROBE_INFO_EVENT(info);
    if (GST_EVENT_TYPE(event) != GST_EVENT_CAPS) {
        return GST_PAD_PROBE_OK;
    }
    GstCaps* caps = nullptr;
    gst_event_parse_caps(event, &caps);
    GstStructure* s = caps ? gst_caps_get_structure(caps, 0) : nullptr;
    int width = 0;
    int height = 0;
    if (s && gst_structure_get_int(s, "width", &width) &&
        gst_structure_get_int(s, "height", &height)) {
        auto* out = static_cast<VideoOut*>(data);
        std::lock_guard guard(out->lock);
        out->decoded_width = width;
        out->decoded_height = height;
        set_scale(*out);
    }
    return GST_PAD_PROBE_OK;
}

// Decoded frames are scaled to the pane's size before they are converted to the
// surface's pixels: the conversion then works on the small picture, not on the full
// 720 x 576 one.
GstElement* video_chain(GstElement* bin, VideoOut* out, bool dv, GstElement** decoder) {
    GstElement* queue = make("queue", "vq");
    GstElement* decode = dv ? make("kestreldvdec") : nullptr;
    GstElement* scale = make("videoscale");
    GstElement* convert = make("videoconvert");
    GstElement* caps = make("capsfilter");
    GstElement* sink = make("appsink");
    g_object_set(queue, "max-size-buffers", 3, "leaky", 2, nullptr);
    // A preview is a glance at the tape, not the picture kept: the nearest pixel, and no
    // chroma filtering or dithering, cost a fraction of the careful defaults.
    g_object_set(scale, "method", 0, nullptr);
    g_object_set(convert, "chroma-mode", 3, "dither", 0, nullptr);
    g_object_set(sink, "max-buffers", 2, "drop", TRUE, "sync", TRUE, "qos", TRUE, nullptr);
    gst_bin_add_many(GST_BIN(bin), queue, scale, convert, caps, sink, nullptr);
    if (decode) {
        gst_bin_add(GST_BIN(bin), decode);
        gst_element_link_many(queue, decode, scale, convert, caps, sink, nullptr);
    } else {
        gst_element_link_many(queue, scale, convert, caps, sink, nullptr);
    }
    if (decoder) {
        *decoder = decode;
    }
    GstPad* scale_sink = gst_element_get_static_pad(scale, "sink");
    gst_pad_add_probe(scale_sink, GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM, note_decoded_size, out,
                      nullptr);
    gst_object_unref(scale_sink);
    {
        std::lock_guard guard(out->lock);
        if (out->caps) {
            gst_object_unref(out->caps);
        }
        out->caps = GST_ELEMENT(gst_object_ref(caps));
        out->decoded_width = 0;
        out->decoded_height = 0;
        set_scale(*out);
    }
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

}  // namespace

// The default renderers of a preview request: DV is split and decoded, then shown and
// played; raw video is shown, raw audio played.
Filter* make_renderer(MajorType type, bool dv, VideoOut* out, GstElement** decoder) {
    GstElement* bin = gst_bin_new(nullptr);
    if (decoder) {
        *decoder = nullptr;
    }
    if (dv) {
        GstElement* demux = make("dvdemux");
        gst_bin_add(GST_BIN(bin), demux);
        video_chain(bin, out, true, decoder);
        audio_chain(bin);
        g_signal_connect(demux, "pad-added", G_CALLBACK(link_demux_pad), bin);
        ghost_sink(bin, demux);
    } else if (type == MajorType::audio) {
        ghost_sink(bin, audio_chain(bin));
    } else {
        ghost_sink(bin, video_chain(bin, out, false, nullptr));
    }
    auto* f = new Filter(Kind::renderer, bin);
    f->add_pin(PinDirection::input, "Input", dv ? MajorType::interleaved : type);
    return f;
}

}  // namespace kc::gst::detail
