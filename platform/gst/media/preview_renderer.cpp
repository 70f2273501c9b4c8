// The preview renderer: the default renderers a preview request gets when it names no
// sink. Video goes through an appsink to the surface of the pane that owns the video
// window, so that the picture is painted by the dialog host, not in a window of
// GStreamer's own.
#include <gst/app/gstappsink.h>

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

}  // namespace

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

namespace {

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

}  // namespace

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

}  // namespace kc::gst::detail
