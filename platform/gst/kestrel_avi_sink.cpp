#include "platform/gst/kestrel_avi_sink.h"

#include <cerrno>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/gst/avi/dv_avi_writer.h"

GST_DEBUG_CATEGORY_STATIC(kc_avi_sink_debug);
#define GST_CAT_DEFAULT kc_avi_sink_debug

namespace kc::gst {

namespace {

enum class Interleave { none = 0, capture = 1, full = 2, none_buffered = 3 };

enum Property { prop_0, prop_location, prop_interleave, prop_max_part_bytes, prop_frames };

constexpr guint64 default_max_part_bytes = guint64{1} << 30;
// Below this a part could not hold a frame and its indexes.
constexpr guint64 min_max_part_bytes = 1024 * 1024;
// In the time-ordered modes one pad may run this far ahead of a silent other pad before
// its buffers are written anyway, so that a stream that stalls cannot hold up the file.
constexpr std::size_t max_queued_buffers = 64;

GType interleave_get_type() {
    static gsize type_id = 0;
    if (g_once_init_enter(&type_id)) {
        static const GEnumValue values[] = {
            {static_cast<gint>(Interleave::none), "Write chunks as they arrive", "none"},
            {static_cast<gint>(Interleave::capture), "Interleave audio and video by time",
             "capture"},
            {static_cast<gint>(Interleave::full), "Full interleaving by time", "full"},
            {static_cast<gint>(Interleave::none_buffered), "Write chunks as they arrive, buffered",
             "none-buffered"},
            {0, nullptr, nullptr}};
        const GType type = g_enum_register_static("KcAviInterleave", values);
        g_once_init_leave(&type_id, type);
    }
    return static_cast<GType>(type_id);
}

struct Pending {
    GstBuffer* buffer;
    GstClockTime time;
};

struct SinkPad {
    GstPad* pad = nullptr;
    bool video = false;
    bool eos = false;
    std::deque<Pending> queue;

    void clear() {
        for (Pending& p : queue) {
            gst_buffer_unref(p.buffer);
        }
        queue.clear();
    }
};

// An error found under the lock, posted on the bus after it is released (a bus sync
// handler may call back into the element).
struct PostedError {
    GQuark domain;
    gint code;
    std::string text;
    std::string debug;
};

struct State {
    std::mutex lock;
    std::string location;
    Interleave interleave = Interleave::capture;
    guint64 max_part_bytes = default_max_part_bytes;
    std::unique_ptr<SinkPad> video;
    std::unique_ptr<SinkPad> audio;
    std::optional<bool> systemstream;
    // The layout the file was opened with, which later caps must agree with.
    bool type1_file = false;
    std::optional<avi::PcmFormat> audio_format;
    std::unique_ptr<avi::AviOutput> output;
    std::unique_ptr<avi::DvAviWriter> writer;
    // The start of a DV frame whose end has not arrived yet.
    std::vector<std::uint8_t> carry;
    guint64 frames = 0;
    bool finished = false;
    bool failed = false;
};

}  // namespace

struct KestrelAviSink {
    GstElement parent;
    State* state;
};

struct KestrelAviSinkClass {
    GstElementClass parent_class;
};

G_DEFINE_TYPE(KestrelAviSink, kestrel_avi_sink, GST_TYPE_ELEMENT)

namespace {

KestrelAviSink* sink_of(gpointer object) {
    return G_TYPE_CHECK_INSTANCE_CAST(object, kestrel_avi_sink_get_type(), KestrelAviSink);
}

GstStaticPadTemplate video_template = GST_STATIC_PAD_TEMPLATE(
    "video_%u", GST_PAD_SINK, GST_PAD_REQUEST,
    GST_STATIC_CAPS("video/x-dv, systemstream = (boolean) { true, false }"));

GstStaticPadTemplate audio_template =
    GST_STATIC_PAD_TEMPLATE("audio_%u", GST_PAD_SINK, GST_PAD_REQUEST,
                            GST_STATIC_CAPS("audio/x-raw, format = (string) S16LE, "
                                            "layout = (string) interleaved, "
                                            "rate = (int) [ 8000, 96000 ], "
                                            "channels = (int) [ 1, 8 ]"));

PostedError write_error(const State& s, std::error_code e) {
    PostedError error{GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_WRITE,
                      "Could not write to file \"" + s.location + "\".", e.message()};
    if (e.category() == avi::avi_error_category()) {
        const auto code = static_cast<avi::AviError>(e.value());
        if (code == avi::AviError::too_many_parts) {
            error.code = GST_RESOURCE_ERROR_NO_SPACE_LEFT;
        } else {
            error.domain = GST_STREAM_ERROR;
            error.code = GST_STREAM_ERROR_FORMAT;
            error.text = "Cannot write this stream as DV AVI: " + e.message() + ".";
        }
    } else if (e == std::errc::no_space_on_device || e == std::errc::file_too_large) {
        error.code = GST_RESOURCE_ERROR_NO_SPACE_LEFT;
        error.text = "No space left on the disk of \"" + s.location + "\".";
    }
    return error;
}

void post_error(KestrelAviSink* self, const PostedError& error) {
    gst_element_message_full(GST_ELEMENT(self), GST_MESSAGE_ERROR, error.domain, error.code,
                             g_strdup(error.text.c_str()), g_strdup(error.debug.c_str()), __FILE__,
                             GST_FUNCTION, __LINE__);
}

PostedError type1_with_audio_error() {
    return PostedError{GST_STREAM_ERROR, GST_STREAM_ERROR_FORMAT,
                       "A type 1 DV AVI file carries its audio inside the DV frames.",
                       "audio pad linked while the video pad takes systemstream=true"};
}

bool ensure_writer(State& s, std::optional<PostedError>& error) {
    if (s.writer) {
        return true;
    }
    if (!s.output) {
        error = PostedError{GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_WRITE,
                            "The AVI file is not open.", s.location};
        return false;
    }
    avi::AviWriterOptions options;
    // The video caps choose the layout. Audio may come first (dvdemux sends a frame's audio
    // before its video); an audio pad only exists for type 2, so that decides it then.
    if (!s.systemstream && !s.audio) {
        error = PostedError{GST_CORE_ERROR, GST_CORE_ERROR_NEGOTIATION,
                            "DV arrived without caps saying whether it is interleaved.", ""};
        return false;
    }
    const bool type1 = s.systemstream.value_or(false);
    if (type1 && s.audio) {
        error = type1_with_audio_error();
        return false;
    }
    s.type1_file = type1;
    options.layout = type1 ? avi::AviLayout::type1_interleaved : avi::AviLayout::type2_separate;
    options.with_audio = !type1 && s.audio != nullptr;
    options.max_riff_bytes = s.max_part_bytes;
    s.writer = std::make_unique<avi::DvAviWriter>(std::move(s.output), options);
    if (s.audio_format && options.with_audio) {
        if (auto e = s.writer->set_audio_format(*s.audio_format)) {
            error = write_error(s, e);
            return false;
        }
    }
    return true;
}

// Cuts the video bytes into DV frames (a file source hands out arbitrary slices; a
// FireWire source and dvdemux hand out whole frames, which pass without a copy).
std::error_code feed_video(State& s, avi::Bytes data) {
    while (!data.empty()) {
        if (s.carry.empty()) {
            const auto system = avi::dv_system_of(data);
            if (!system && data.size() >= 4) {
                return make_error_code(avi::AviError::not_a_dv_frame);
            }
            const std::size_t frame = system ? avi::dv_frame_bytes(*system) : 0;
            if (system && data.size() >= frame) {
                if (auto e = s.writer->write_video(data.first(frame))) {
                    return e;
                }
                ++s.frames;
                data = data.subspan(frame);
                continue;
            }
            s.carry.assign(data.begin(), data.end());
            return {};
        }
        if (s.carry.size() < 4) {
            const std::size_t take = std::min(4 - s.carry.size(), data.size());
            s.carry.insert(s.carry.end(), data.begin(), data.begin() + static_cast<long>(take));
            data = data.subspan(take);
            continue;
        }
        const auto system = avi::dv_system_of(s.carry);
        if (!system) {
            return make_error_code(avi::AviError::not_a_dv_frame);
        }
        const std::size_t frame = avi::dv_frame_bytes(*system);
        const std::size_t take = std::min(frame - s.carry.size(), data.size());
        s.carry.insert(s.carry.end(), data.begin(), data.begin() + static_cast<long>(take));
        data = data.subspan(take);
        if (s.carry.size() == frame) {
            if (auto e = s.writer->write_video(s.carry)) {
                return e;
            }
            ++s.frames;
            s.carry.clear();
        }
    }
    return {};
}

GstFlowReturn write_buffer(State& s, SinkPad& pad, GstBuffer* buffer,
                           std::optional<PostedError>& error) {
    GstMapInfo map;
    if (!gst_buffer_map(buffer, &map, GST_MAP_READ)) {
        gst_buffer_unref(buffer);
        error =
            PostedError{GST_STREAM_ERROR, GST_STREAM_ERROR_FAILED, "Could not read a buffer.", ""};
        s.failed = true;
        return GST_FLOW_ERROR;
    }
    const avi::Bytes data(map.data, map.size);
    const std::error_code e = pad.video ? feed_video(s, data) : s.writer->write_audio(data);
    gst_buffer_unmap(buffer, &map);
    gst_buffer_unref(buffer);
    if (e) {
        error = write_error(s, e);
        s.failed = true;
        return GST_FLOW_ERROR;
    }
    return GST_FLOW_OK;
}

bool time_ordered(const State& s) {
    return (s.interleave == Interleave::capture || s.interleave == Interleave::full) && s.video &&
           s.audio;
}

// Writes queued buffers, earliest first, while every pad that can still deliver has
// something queued (or `force`: at the end, everything).
GstFlowReturn drain(State& s, bool force, std::optional<PostedError>& error) {
    for (;;) {
        SinkPad* pads[] = {s.video.get(), s.audio.get()};
        SinkPad* next = nullptr;
        bool waiting = false;
        for (SinkPad* pad : pads) {
            if (!pad) {
                continue;
            }
            if (pad->queue.empty()) {
                waiting = waiting || !pad->eos;
                continue;
            }
            if (!next || pad->queue.front().time < next->queue.front().time) {
                next = pad;
            }
        }
        if (!next) {
            return GST_FLOW_OK;
        }
        if (waiting && !force) {
            // Hold on unless the busy pad has run far ahead of the idle one.
            SinkPad* busy = nullptr;
            for (SinkPad* pad : pads) {
                if (pad && pad->queue.size() > max_queued_buffers) {
                    busy = pad;
                }
            }
            if (!busy) {
                return GST_FLOW_OK;
            }
            next = busy;
        }
        const Pending pending = next->queue.front();
        next->queue.pop_front();
        const GstFlowReturn ret = write_buffer(s, *next, pending.buffer, error);
        if (ret != GST_FLOW_OK) {
            return ret;
        }
    }
}

// Ends the file: remaining buffers, then the writer's close. A file that never got a
// buffer still becomes a well-formed, empty AVI.
void finish(State& s, std::optional<PostedError>& error) {
    if (s.finished) {
        return;
    }
    s.finished = true;
    if (!s.failed) {
        (void)drain(s, true, error);
    }
    if (!s.writer && s.output && !s.failed) {
        // Stopped before any caps came: no stream to describe, an empty type 1 file will do.
        if (!s.systemstream && !s.audio) {
            s.systemstream = true;
        }
        (void)ensure_writer(s, error);
    }
    if (s.writer) {
        const std::error_code e = s.writer->close();
        if (e && !s.failed && !error) {
            error = write_error(s, e);
        }
    }
    if (s.video) {
        s.video->clear();
    }
    if (s.audio) {
        s.audio->clear();
    }
}

GstFlowReturn sink_chain(GstPad* pad, GstObject* parent, GstBuffer* buffer) {
    KestrelAviSink* self = sink_of(parent);
    State& s = *self->state;
    auto* sink_pad = static_cast<SinkPad*>(gst_pad_get_element_private(pad));
    std::optional<PostedError> error;
    GstFlowReturn ret = GST_FLOW_OK;
    {
        std::lock_guard lock(s.lock);
        if (s.failed) {
            gst_buffer_unref(buffer);
            return GST_FLOW_ERROR;
        }
        if (s.finished) {
            gst_buffer_unref(buffer);
            return GST_FLOW_EOS;
        }
        if (!ensure_writer(s, error)) {
            gst_buffer_unref(buffer);
            s.failed = true;
            ret = GST_FLOW_ERROR;
        } else if (time_ordered(s)) {
            GstClockTime time = GST_BUFFER_PTS(buffer);
            if (!GST_CLOCK_TIME_IS_VALID(time)) {
                time = GST_BUFFER_DTS(buffer);
            }
            // A buffer without a time cannot be ordered; it goes out first.
            sink_pad->queue.push_back({buffer, GST_CLOCK_TIME_IS_VALID(time) ? time : 0});
            ret = drain(s, false, error);
        } else {
            ret = write_buffer(s, *sink_pad, buffer, error);
        }
        // Posted before another pad can see the failure: its upstream would report the
        // refused buffer as a bare data-flow error, first on the bus, and the cause (a full
        // disk) would come second.
        if (error) {
            post_error(self, *error);
        }
    }
    return ret;
}

bool read_audio_caps(const GstCaps* caps, avi::PcmFormat& format) {
    const GstStructure* st = gst_caps_get_structure(caps, 0);
    gint rate = 0;
    gint channels = 0;
    const gchar* sample_format = gst_structure_get_string(st, "format");
    if (!gst_structure_get_int(st, "rate", &rate) ||
        !gst_structure_get_int(st, "channels", &channels) || !sample_format ||
        g_strcmp0(sample_format, "S16LE") != 0) {
        return false;
    }
    format.sample_rate = static_cast<std::uint32_t>(rate);
    format.channels = static_cast<std::uint16_t>(channels);
    format.bits_per_sample = 16;
    return true;
}

gboolean sink_event(GstPad* pad, GstObject* parent, GstEvent* event) {
    KestrelAviSink* self = sink_of(parent);
    State& s = *self->state;
    auto* sink_pad = static_cast<SinkPad*>(gst_pad_get_element_private(pad));
    std::optional<PostedError> error;
    gboolean result = TRUE;
    bool post_eos = false;
    const guint32 seqnum = gst_event_get_seqnum(event);

    {
        std::lock_guard lock(s.lock);
        switch (GST_EVENT_TYPE(event)) {
            case GST_EVENT_CAPS: {
                GstCaps* caps = nullptr;
                gst_event_parse_caps(event, &caps);
                if (sink_pad->video) {
                    gboolean systemstream = FALSE;
                    gst_structure_get_boolean(gst_caps_get_structure(caps, 0), "systemstream",
                                              &systemstream);
                    const bool type1 = systemstream != FALSE;
                    if (type1 && s.audio) {
                        // Whichever pad's data came first, the same refusal.
                        error = type1_with_audio_error();
                        s.failed = true;
                        result = FALSE;
                    } else if (s.writer && s.type1_file != type1) {
                        // The file's layout is fixed by its first frame.
                        error = PostedError{GST_STREAM_ERROR, GST_STREAM_ERROR_FORMAT,
                                            "The DV stream changed between interleaved and "
                                            "separate audio within one file.",
                                            ""};
                        s.failed = true;
                        result = FALSE;
                    } else {
                        s.systemstream = type1;
                    }
                } else {
                    avi::PcmFormat format;
                    if (!read_audio_caps(caps, format)) {
                        result = FALSE;
                    } else {
                        s.audio_format = format;
                        if (s.writer && !s.failed && s.systemstream == false) {
                            if (auto e = s.writer->set_audio_format(format)) {
                                error = write_error(s, e);
                                result = FALSE;
                            }
                        }
                    }
                }
                break;
            }
            case GST_EVENT_EOS: {
                sink_pad->eos = true;
                const bool all_eos = (!s.video || s.video->eos) && (!s.audio || s.audio->eos);
                if (all_eos && !s.finished) {
                    finish(s, error);
                    post_eos = true;
                } else if (!s.failed && !s.finished && time_ordered(s)) {
                    (void)drain(s, false, error);
                }
                break;
            }
            default:
                break;
        }
    }
    gst_event_unref(event);
    if (error) {
        post_error(self, *error);
    }
    if (post_eos) {
        // A sink says it is done by posting EOS; the pipeline reports EOS once every sink has.
        GstMessage* message = gst_message_new_eos(GST_OBJECT(self));
        gst_message_set_seqnum(message, seqnum);
        gst_element_post_message(GST_ELEMENT(self), message);
    }
    return result;
}

GstPad* request_new_pad(GstElement* element, GstPadTemplate* templ, const gchar* name,
                        const GstCaps* /*caps*/) {
    KestrelAviSink* self = sink_of(element);
    State& s = *self->state;
    const bool video = g_strcmp0(GST_PAD_TEMPLATE_NAME_TEMPLATE(templ), "video_%u") == 0;
    GstPad* pad = nullptr;
    {
        std::lock_guard lock(s.lock);
        std::unique_ptr<SinkPad>& slot = video ? s.video : s.audio;
        // One video and one audio stream per file, fixed before the first buffer.
        if (slot || s.writer) {
            return nullptr;
        }
        pad = gst_pad_new_from_template(templ, name ? name : (video ? "video_0" : "audio_0"));
        slot = std::make_unique<SinkPad>();
        slot->pad = pad;
        slot->video = video;
        gst_pad_set_element_private(pad, slot.get());
    }
    gst_pad_set_chain_function(pad, sink_chain);
    gst_pad_set_event_function(pad, sink_event);
    gst_element_add_pad(element, pad);
    return pad;
}

void release_pad(GstElement* element, GstPad* pad) {
    KestrelAviSink* self = sink_of(element);
    State& s = *self->state;
    {
        std::lock_guard lock(s.lock);
        for (std::unique_ptr<SinkPad>* slot : {&s.video, &s.audio}) {
            if (*slot && (*slot)->pad == pad) {
                (*slot)->clear();
                slot->reset();
            }
        }
        gst_pad_set_element_private(pad, nullptr);
    }
    gst_element_remove_pad(element, pad);
}

GstStateChangeReturn change_state(GstElement* element, GstStateChange transition) {
    KestrelAviSink* self = sink_of(element);
    State& s = *self->state;
    if (transition == GST_STATE_CHANGE_READY_TO_PAUSED) {
        std::optional<PostedError> error;
        {
            std::lock_guard lock(s.lock);
            s.writer.reset();
            s.carry.clear();
            s.frames = 0;
            s.finished = false;
            s.failed = false;
            for (SinkPad* pad : {s.video.get(), s.audio.get()}) {
                if (pad) {
                    pad->eos = false;
                    pad->clear();
                }
            }
            if (s.location.empty()) {
                error = PostedError{GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_NOT_FOUND,
                                    "No file name specified for writing.", ""};
            } else {
                std::error_code e;
                s.output = avi::open_file_output(s.location, e);
                if (!s.output) {
                    error = PostedError{GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_OPEN_WRITE,
                                        "Could not open file \"" + s.location + "\" for writing.",
                                        e.message()};
                }
            }
        }
        if (error) {
            post_error(self, *error);
            return GST_STATE_CHANGE_FAILURE;
        }
    }

    const GstStateChangeReturn ret =
        GST_ELEMENT_CLASS(kestrel_avi_sink_parent_class)->change_state(element, transition);
    if (ret == GST_STATE_CHANGE_FAILURE) {
        return ret;
    }

    if (transition == GST_STATE_CHANGE_PAUSED_TO_READY) {
        // The pads are inactive now, so no streaming thread is inside the element: a
        // capture stopped without EOS still gets its indexes and final header here.
        std::optional<PostedError> error;
        {
            std::lock_guard lock(s.lock);
            finish(s, error);
            s.writer.reset();
            s.output.reset();
            s.carry.clear();
        }
        if (error) {
            post_error(self, *error);
        }
    }
    return ret;
}

void set_property(GObject* object, guint id, const GValue* value, GParamSpec* pspec) {
    State& s = *sink_of(object)->state;
    std::lock_guard lock(s.lock);
    switch (id) {
        case prop_location: {
            // The file is opened on the way to PAUSED; a new name for an open file would
            // only make "location" lie about where the frames go.
            if (s.output || s.writer) {
                GST_WARNING_OBJECT(object, "location cannot change while the file is open");
                break;
            }
            const gchar* location = g_value_get_string(value);
            s.location = location ? location : "";
            break;
        }
        case prop_interleave:
            s.interleave = static_cast<Interleave>(g_value_get_enum(value));
            break;
        case prop_max_part_bytes:
            s.max_part_bytes = g_value_get_uint64(value);
            break;
        default:
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
            break;
    }
}

void get_property(GObject* object, guint id, GValue* value, GParamSpec* pspec) {
    State& s = *sink_of(object)->state;
    std::lock_guard lock(s.lock);
    switch (id) {
        case prop_location:
            g_value_set_string(value, s.location.c_str());
            break;
        case prop_interleave:
            g_value_set_enum(value, static_cast<gint>(s.interleave));
            break;
        case prop_max_part_bytes:
            g_value_set_uint64(value, s.max_part_bytes);
            break;
        case prop_frames:
            g_value_set_uint64(value, s.frames);
            break;
        default:
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
            break;
    }
}

void finalize(GObject* object) {
    KestrelAviSink* self = sink_of(object);
    if (self->state) {
        for (SinkPad* pad : {self->state->video.get(), self->state->audio.get()}) {
            if (pad) {
                pad->clear();
            }
        }
        delete self->state;
        self->state = nullptr;
    }
    G_OBJECT_CLASS(kestrel_avi_sink_parent_class)->finalize(object);
}

}  // namespace

static void kestrel_avi_sink_class_init(KestrelAviSinkClass* klass) {
    GObjectClass* object_class = G_OBJECT_CLASS(klass);
    GstElementClass* element_class = GST_ELEMENT_CLASS(klass);
    object_class->set_property = set_property;
    object_class->get_property = get_property;
    object_class->finalize = finalize;

    const auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                GST_PARAM_MUTABLE_READY);
    g_object_class_install_property(
        object_class, prop_location,
        g_param_spec_string("location", "File location", "The AVI file to write", nullptr, flags));
    g_object_class_install_property(
        object_class, prop_interleave,
        g_param_spec_enum("interleave", "Interleaving",
                          "How audio and video chunks are ordered in the file",
                          interleave_get_type(), static_cast<gint>(Interleave::capture), flags));
    g_object_class_install_property(
        object_class, prop_max_part_bytes,
        g_param_spec_uint64("max-part-bytes", "Largest RIFF part",
                            "Upper bound of each RIFF part of the file, in bytes",
                            min_max_part_bytes, 0xFFFFFFFFu, default_max_part_bytes, flags));
    g_object_class_install_property(
        object_class, prop_frames,
        g_param_spec_uint64("frames", "Frames", "Video frames written to the file", 0, G_MAXUINT64,
                            0,
                            static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS)));

    gst_element_class_add_static_pad_template(element_class, &video_template);
    gst_element_class_add_static_pad_template(element_class, &audio_template);
    gst_element_class_set_static_metadata(
        element_class, "Kestrel DV AVI writer", "Sink/File",
        "Writes DV as OpenDML AVI, type 1 or type 2, readable up to the last frame if cut off",
        "Kestrel Capture");
    element_class->request_new_pad = request_new_pad;
    element_class->release_pad = release_pad;
    element_class->change_state = change_state;
}

static void kestrel_avi_sink_init(KestrelAviSink* self) {
    self->state = new State();
    GST_OBJECT_FLAG_SET(self, GST_ELEMENT_FLAG_SINK);
}

bool register_avi_sink() {
    GST_DEBUG_CATEGORY_INIT(kc_avi_sink_debug, "kestrelavisink", 0, "Kestrel DV AVI writer");
    return gst_element_register(nullptr, "kestrelavisink", GST_RANK_NONE,
                                kestrel_avi_sink_get_type()) == TRUE;
}

}  // namespace kc::gst
