#include "deck/gst/tape_writer.h"

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gst/gst.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <vector>

#include "deck/dv_frame.h"
#include "deck/test_card.h"

namespace kc::deck {
namespace {

struct Output {
    const TapePlan* plan = nullptr;
    std::ofstream* file = nullptr;
    std::vector<std::uint8_t> pending;
    std::int64_t written = 0;
    bool failed = false;
    std::mutex mutex;
    std::condition_variable progressed;
};

// The multiplexer's output is a byte stream; cut it into frames and stamp each one.
GstFlowReturn on_sample(GstAppSink* sink, gpointer data) {
    auto* out = static_cast<Output*>(data);
    GstSample* sample = gst_app_sink_pull_sample(sink);
    if (sample == nullptr) {
        return GST_FLOW_EOS;
    }
    GstBuffer* buffer = gst_sample_get_buffer(sample);
    GstMapInfo map;
    if (buffer != nullptr && gst_buffer_map(buffer, &map, GST_MAP_READ)) {
        out->pending.insert(out->pending.end(), map.data, map.data + map.size);
        gst_buffer_unmap(buffer, &map);
    }
    gst_sample_unref(sample);
    const std::size_t size = frame_bytes(out->plan->system);
    std::size_t used = 0;
    while (out->pending.size() - used >= size && out->written < out->plan->total_frames()) {
        std::span<std::uint8_t> frame(out->pending.data() + used, size);
        stamp_frame(frame, out->plan->system, plan_frame(*out->plan, out->written));
        out->file->write(reinterpret_cast<const char*>(frame.data()),
                         static_cast<std::streamsize>(size));
        if (!*out->file) {
            out->failed = true;
            return GST_FLOW_ERROR;
        }
        {
            std::lock_guard lock(out->mutex);
            ++out->written;
        }
        out->progressed.notify_all();
        used += size;
    }
    out->pending.erase(out->pending.begin(), out->pending.begin() + static_cast<long>(used));
    return GST_FLOW_OK;
}

GstElement* make(const char* factory, std::string& error) {
    GstElement* e = gst_element_factory_make(factory, nullptr);
    if (e == nullptr) {
        error = std::string("The GStreamer element \"") + factory +
                "\" is missing; install gstreamer1.0-libav and gstreamer1.0-plugins-base.";
    }
    return e;
}

bool encode(const TapePlan& plan, std::ofstream& file, std::string& error) {
    const bool pal = plan.system == DvSystem::pal_625_50;
    const PictureSize size = picture_size(plan.system);
    const FrameRate rate = frame_rate(plan.system);

    GstElement* pipeline = gst_pipeline_new("tape-writer");
    GstElement* vsrc = make("appsrc", error);
    GstElement* convert = make("videoconvert", error);
    GstElement* filter = make("capsfilter", error);
    GstElement* venc = make("avenc_dvvideo", error);
    GstElement* sink = make("appsink", error);
    for (GstElement* e : {vsrc, convert, filter, venc, sink}) {
        if (e == nullptr) {
            for (GstElement* other : {vsrc, convert, filter, venc, sink}) {
                if (other != nullptr) {
                    gst_object_unref(other);
                }
            }
            gst_object_unref(pipeline);
            return false;
        }
    }
    GstCaps* vcaps = gst_caps_new_simple(
        "video/x-raw", "format", G_TYPE_STRING, "I420", "width", G_TYPE_INT, size.width, "height",
        G_TYPE_INT, size.height, "framerate", GST_TYPE_FRACTION, rate.num, rate.den,
        "pixel-aspect-ratio", GST_TYPE_FRACTION, pal ? 16 : 8, pal ? 15 : 9, nullptr);
    // The queue is unbounded; the feeding loop below keeps it short by waiting for the
    // encoder, and stops early when the pipeline fails.
    g_object_set(vsrc, "caps", vcaps, "format", GST_FORMAT_TIME, "max-bytes", guint64{0}, nullptr);
    gst_caps_unref(vcaps);
    g_object_set(sink, "sync", FALSE, nullptr);

    // Consumer DV: 4:2:0 on 625-50, 4:1:1 on 525-60; 4:2:2 would make the encoder write
    // twice-as-large DV50 frames.
    GstCaps* dv25 =
        gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, pal ? "I420" : "Y41B", nullptr);
    g_object_set(filter, "caps", dv25, nullptr);
    gst_caps_unref(dv25);
    gst_bin_add_many(GST_BIN(pipeline), vsrc, convert, filter, venc, sink, nullptr);
    bool ok = gst_element_link_many(vsrc, convert, filter, venc, sink, nullptr);
    if (!ok) {
        error = "The DV encoder could not be set up for " + std::string(system_name(plan.system)) +
                " pictures.";
        gst_object_unref(pipeline);
        return false;
    }
    Output out;
    out.plan = &plan;
    out.file = &file;
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = on_sample;
    gst_app_sink_set_callbacks(GST_APP_SINK(sink), &callbacks, &out, nullptr);

    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    GstBus* bus = gst_element_get_bus(pipeline);
    const std::int64_t frames = plan.total_frames();
    for (std::int64_t n = 0; n < frames && ok; ++n) {
        const GstClockTime pts =
            gst_util_uint64_scale(static_cast<guint64>(n) * GST_SECOND,
                                  static_cast<guint64>(rate.den), static_cast<guint64>(rate.num));
        const GstClockTime next =
            gst_util_uint64_scale(static_cast<guint64>(n + 1) * GST_SECOND,
                                  static_cast<guint64>(rate.den), static_cast<guint64>(rate.num));
        GstBuffer* picture = gst_buffer_new_allocate(nullptr, size.i420_bytes(), nullptr);
        GstMapInfo map;
        gst_buffer_map(picture, &map, GST_MAP_WRITE);
        draw_picture(plan, n, std::span(map.data, map.size));
        gst_buffer_unmap(picture, &map);
        GST_BUFFER_PTS(picture) = pts;
        GST_BUFFER_DURATION(picture) = next - pts;

        ok = gst_app_src_push_buffer(GST_APP_SRC(vsrc), picture) == GST_FLOW_OK;
        // Stay at most a few frames ahead of the encoder; stop early on an error.
        std::unique_lock lock(out.mutex);
        while (ok && n - out.written > 12) {
            out.progressed.wait_for(lock, std::chrono::milliseconds(50));
            if (GstMessage* m = gst_bus_peek(bus);
                m != nullptr && GST_MESSAGE_TYPE(m) == GST_MESSAGE_ERROR) {
                gst_message_unref(m);
                ok = false;
            } else if (m != nullptr) {
                gst_message_unref(gst_bus_pop(bus));
                gst_message_unref(m);
            }
        }
    }
    gst_app_src_end_of_stream(GST_APP_SRC(vsrc));

    GstMessage* msg = gst_bus_timed_pop_filtered(
        bus, GST_CLOCK_TIME_NONE, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    if (msg != nullptr && GST_MESSAGE_TYPE(msg) == GST_MESSAGE_ERROR) {
        GError* err = nullptr;
        gst_message_parse_error(msg, &err, nullptr);
        error = std::string("Encoding the tape failed: ") + (err ? err->message : "unknown error");
        g_clear_error(&err);
        ok = false;
    }
    if (msg != nullptr) {
        gst_message_unref(msg);
    }
    gst_object_unref(bus);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
    if (ok && out.failed) {
        error = "The tape image could not be written (disk full?).";
        ok = false;
    }
    if (ok && out.written != frames) {
        error = "The DV encoder delivered " + std::to_string(out.written) + " of " +
                std::to_string(frames) + " frames.";
        ok = false;
    }
    return ok;
}

}  // namespace

bool write_tape(const TapePlan& plan, const std::filesystem::path& path, std::string& error) {
    if (plan.total_frames() <= 0) {
        error = "The tape has no frames to write.";
        return false;
    }
    if (!gst_is_initialized()) {
        gst_init(nullptr, nullptr);
    }
    std::filesystem::path temp = path;
    temp += ".part-" + std::to_string(::getpid());
    std::ofstream file(temp, std::ios::binary | std::ios::trunc);
    if (!file) {
        error = "Cannot create \"" + path.string() + "\": check the folder exists and is writable.";
        return false;
    }
    const bool ok = encode(plan, file, error);
    file.close();
    std::error_code ec;
    if (ok && !file.fail()) {
        std::filesystem::rename(temp, path, ec);
        if (!ec) {
            return true;
        }
        error = "Cannot write \"" + path.string() + "\": " + ec.message() + ".";
    } else if (ok) {
        error = "The tape image \"" + path.string() + "\" could not be written (disk full?).";
    }
    std::filesystem::remove(temp, ec);
    return false;
}

std::filesystem::path cached_demo_tape(DvSystem system, std::string& error) {
    std::filesystem::path dir;
    if (const char* xdg = std::getenv("XDG_CACHE_HOME"); xdg != nullptr && *xdg != '\0') {
        dir = xdg;
    } else if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
        dir = std::filesystem::path(home) / ".cache";
    } else {
        dir = std::filesystem::temp_directory_path();
    }
    dir /= "kestrel-capture";
    const std::filesystem::path path =
        dir / (system == DvSystem::pal_625_50 ? "demo-pal.dv" : "demo-ntsc.dv");
    // One writer at a time in this process; another process writes its own temporary file
    // and the last rename wins with identical contents.
    static std::mutex mutex;
    std::lock_guard lock(mutex);
    std::error_code ec;
    const TapePlan plan = demo_plan(DemoOptions{system});
    const auto expected = static_cast<std::uintmax_t>(plan.total_frames()) * frame_bytes(system);
    if (std::filesystem::file_size(path, ec) == expected && !ec) {
        return path;
    }
    std::filesystem::create_directories(dir, ec);
    if (ec) {
        error = "Cannot create the cache folder \"" + dir.string() + "\": " + ec.message() + ".";
        return {};
    }
    if (!write_tape(plan, path, error)) {
        return {};
    }
    return path;
}

}  // namespace kc::deck
