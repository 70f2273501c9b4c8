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

#include "deck/dv_terms.h"
#include "deck/test_card.h"
#include "dv/dv_audio.h"

namespace kc::deck {
namespace {

struct Output {
    const TapePlan* plan = nullptr;
    std::ofstream* file = nullptr;
    std::vector<std::uint8_t> pending;
    std::int64_t written = 0;  // tape frames written so far, over every chunk
    std::int64_t end = 0;      // the current chunk's end
    bool failed = false;
    std::mutex mutex;
    std::condition_variable progressed;
};

// Records the plan's own sound into an encoded frame, for plans whose sound the encoder,
// which writes 48 kHz 16-bit only, cannot make.
void record_sound(const TapePlan& plan, std::int64_t tape_frame, std::span<std::uint8_t> frame) {
    const int rate = plan.audio_rate_hz;
    const std::int64_t first = first_sample_of_frame(plan.system, tape_frame, rate);
    const auto count =
        static_cast<std::size_t>(first_sample_of_frame(plan.system, tape_frame + 1, rate) - first);
    std::vector<std::int16_t> stereo(count * 2);
    fill_sound(plan, tape_frame, stereo);
    AudioFormat format{rate, AudioQuantization::linear_16, static_cast<int>(count), 2, true};
    if (plan.audio_12bit) {
        format.quantization = AudioQuantization::nonlinear_12;
    }
    write_audio(frame, plan.system, format, stereo);
}

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
    while (out->pending.size() - used >= size && out->written < out->end) {
        std::span<std::uint8_t> frame(out->pending.data() + used, size);
        stamp_frame(frame, out->plan->system, plan_frame(*out->plan, out->written));
        if (out->plan->audio_12bit || out->plan->audio_rate_hz != audio_rate_hz) {
            record_sound(*out->plan, out->written, frame);
        }
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

// Encodes tape frames [first, first + count). The DV multiplexer hands its output on only at
// the end of its stream, so a tape is encoded in chunks of a second or two, each its own
// stream: memory stays small and the frames' sound runs on across chunks unchanged.
bool encode(const TapePlan& plan, Output& out, std::int64_t first, std::int64_t count,
            std::string& error) {
    const bool pal = plan.system == DvSystem::pal_625_50;
    // The encoder is fed DV's locked 48 kHz sound; other sound is recorded over it as the
    // frames come out.
    TapePlan fed = plan;
    fed.audio_rate_hz = audio_rate_hz;
    const PictureSize size = picture_size(plan.system);
    const FrameRate rate = frame_rate(plan.system);

    GstElement* pipeline = gst_pipeline_new("tape-writer");
    GstElement* vsrc = make("appsrc", error);
    GstElement* convert = make("videoconvert", error);
    GstElement* filter = make("capsfilter", error);
    GstElement* venc = make("avenc_dvvideo", error);
    GstElement* asrc = make("appsrc", error);
    GstElement* mux = make("avmux_dv", error);
    GstElement* sink = make("appsink", error);
    for (GstElement* e : {vsrc, convert, filter, venc, asrc, mux, sink}) {
        if (e == nullptr) {
            for (GstElement* other : {vsrc, convert, filter, venc, asrc, mux, sink}) {
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
    GstCaps* acaps = gst_caps_new_simple(
        "audio/x-raw", "format", G_TYPE_STRING, "S16LE", "rate", G_TYPE_INT, audio_rate_hz,
        "channels", G_TYPE_INT, audio_channels, "layout", G_TYPE_STRING, "interleaved", nullptr);
    // Unbounded queues: a chunk is small.
    g_object_set(vsrc, "caps", vcaps, "format", GST_FORMAT_TIME, "max-bytes", guint64{0}, nullptr);
    g_object_set(asrc, "caps", acaps, "format", GST_FORMAT_TIME, "max-bytes", guint64{0}, nullptr);
    gst_caps_unref(vcaps);
    gst_caps_unref(acaps);
    g_object_set(sink, "sync", FALSE, nullptr);

    // Consumer DV: 4:2:0 on 625-50, 4:1:1 on 525-60; 4:2:2 would make the encoder write
    // twice-as-large DV50 frames.
    GstCaps* dv25 =
        gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, pal ? "I420" : "Y41B", nullptr);
    g_object_set(filter, "caps", dv25, nullptr);
    gst_caps_unref(dv25);
    gst_bin_add_many(GST_BIN(pipeline), vsrc, convert, filter, venc, asrc, mux, sink, nullptr);
    bool ok = gst_element_link_many(vsrc, convert, filter, venc, mux, sink, nullptr) &&
              gst_element_link(asrc, mux);
    if (!ok) {
        error = "The DV encoder could not be set up for " + std::string(system_name(plan.system)) +
                " pictures.";
        gst_object_unref(pipeline);
        return false;
    }
    out.end = first + count;
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = on_sample;
    gst_app_sink_set_callbacks(GST_APP_SINK(sink), &callbacks, &out, nullptr);

    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    for (std::int64_t i = 0; i < count && ok; ++i) {
        const std::int64_t n = first + i;
        const GstClockTime pts =
            gst_util_uint64_scale(static_cast<guint64>(i) * GST_SECOND,
                                  static_cast<guint64>(rate.den), static_cast<guint64>(rate.num));
        const GstClockTime next =
            gst_util_uint64_scale(static_cast<guint64>(i + 1) * GST_SECOND,
                                  static_cast<guint64>(rate.den), static_cast<guint64>(rate.num));
        GstBuffer* picture = gst_buffer_new_allocate(nullptr, size.i420_bytes(), nullptr);
        GstMapInfo map;
        gst_buffer_map(picture, &map, GST_MAP_WRITE);
        draw_picture(plan, n, std::span(map.data, map.size));
        gst_buffer_unmap(picture, &map);
        GST_BUFFER_PTS(picture) = pts;
        GST_BUFFER_DURATION(picture) = next - pts;

        const std::int64_t chunk_start = first_sample_of_frame(plan.system, first);
        const std::int64_t sample = first_sample_of_frame(plan.system, n);
        const std::int64_t samples = first_sample_of_frame(plan.system, n + 1) - sample;
        const std::size_t values = static_cast<std::size_t>(samples) * audio_channels;
        GstBuffer* sound = gst_buffer_new_allocate(nullptr, values * sizeof(std::int16_t), nullptr);
        gst_buffer_map(sound, &map, GST_MAP_WRITE);
        fill_sound(fed, n, std::span(reinterpret_cast<std::int16_t*>(map.data), values));
        gst_buffer_unmap(sound, &map);
        GST_BUFFER_PTS(sound) = gst_util_uint64_scale(static_cast<guint64>(sample - chunk_start),
                                                      GST_SECOND, audio_rate_hz);
        GST_BUFFER_DURATION(sound) =
            gst_util_uint64_scale(static_cast<guint64>(samples), GST_SECOND, audio_rate_hz);

        ok = gst_app_src_push_buffer(GST_APP_SRC(vsrc), picture) == GST_FLOW_OK &&
             gst_app_src_push_buffer(GST_APP_SRC(asrc), sound) == GST_FLOW_OK;
    }
    gst_app_src_end_of_stream(GST_APP_SRC(vsrc));
    gst_app_src_end_of_stream(GST_APP_SRC(asrc));
    GstBus* bus = gst_element_get_bus(pipeline);

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
    if (ok && out.written != out.end) {
        error = "The DV encoder delivered " + std::to_string(out.written - first) + " of " +
                std::to_string(count) + " frames.";
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
    Output out;
    out.plan = &plan;
    out.file = &file;
    const std::int64_t chunk = 50;
    bool ok = true;
    for (std::int64_t first = 0; ok && first < plan.total_frames(); first += chunk) {
        ok = encode(plan, out, first, std::min(chunk, plan.total_frames() - first), error);
    }
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

namespace {
// Whether the tape at `path` starts as `plan` does (timecode, user bits and recording
// time of its first frame): a cache written by an older demo plan is made again.
bool holds_plan_start(const std::filesystem::path& path, const TapePlan& plan) {
    std::vector<std::uint8_t> first(frame_bytes(plan.system));
    std::ifstream in(path, std::ios::binary);
    if (!in.read(reinterpret_cast<char*>(first.data()),
                 static_cast<std::streamsize>(first.size()))) {
        return false;
    }
    const PlannedFrame planned = plan_frame(plan, 0);
    return read_timecode(first, plan.system) == to_bcd_word(planned.timecode) &&
           read_user_bits(first, plan.system).value_or(0) == planned.user_bits &&
           read_recording_time(first, plan.system) == planned.recorded;
}
}  // namespace

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
    if (std::filesystem::file_size(path, ec) == expected && !ec && holds_plan_start(path, plan)) {
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
