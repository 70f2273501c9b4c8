// The filter graph over one GstPipeline: adding and removing filters, realising pin
// connections as element links, running and stopping, the events the bus turns into, and
// the video window the preview renderer paints for. Connections and stopping are where
// the pipeline's own rules (request pads, dynamic pads, draining on EOS) meet the graph
// interface.
#include <algorithm>
#include <chrono>
#include <cstdio>

#include "platform/gst/kestrel_frame_gate.h"
#include "platform/gst/media/media_internal.h"

namespace kc::gst::detail {

Graph::Graph(DialogHost& host_, VideoSurfaces& surfaces_) : host(host_), surfaces(surfaces_) {
    pipeline = gst_pipeline_new("capture-graph");
    gst_object_ref_sink(pipeline);
    GstBus* bus = gst_element_get_bus(pipeline);
    gst_bus_set_sync_handler(bus, &Graph::on_bus, this, nullptr);
    gst_object_unref(bus);
}

Graph::~Graph() {
    gst_element_set_state(pipeline, GST_STATE_NULL);
    GstBus* bus = gst_element_get_bus(pipeline);
    gst_bus_set_sync_handler(bus, nullptr, nullptr, nullptr);
    gst_object_unref(bus);
    while (!filters.empty()) {
        remove_filter(filters.back());
    }
    std::lock_guard guard(lock);
    for (auto& e : events) {
        release_params(e.code, e.param1);
    }
    gst_object_unref(pipeline);
}

HRESULT Graph::query_interface(Iid iid, void** out) {
    *out = nullptr;
    switch (iid) {
        case Iid::unknown:
        case Iid::graph_builder:
            return give(static_cast<media::GraphBuilder*>(this), out);
        case Iid::media_control:
            return give(static_cast<media::MediaControl*>(this), out);
        case Iid::media_event:
            return give(static_cast<media::MediaEvent*>(this), out);
        case Iid::video_window:
            return give(static_cast<media::VideoWindow*>(this), out);
        case Iid::media_seeking:
            return give(static_cast<media::MediaSeeking*>(this), out);
        default:
            return E_NOINTERFACE;
    }
}

HRESULT Graph::get_current_position(std::int64_t* position_100ns) {
    if (position_100ns == nullptr) {
        return E_POINTER;
    }
    gint64 ns = 0;
    if (!gst_element_query_position(pipeline, GST_FORMAT_TIME, &ns) || ns < 0) {
        ns = 0;
    }
    *position_100ns = ns / 100;
    return S_OK;
}

HRESULT Graph::add_filter(media::BaseFilter* base, const std::string& name) {
    auto* f = dynamic_cast<Filter*>(base);
    if (f == nullptr || base == nullptr) {
        return E_POINTER;
    }
    if (f->graph != nullptr) {
        return f->graph == this ? S_FALSE : E_INVALIDARG;
    }
    for (auto* other : filters) {
        if (other->graph_name == name) {
            return VFW_E_DUPLICATE_NAME;
        }
    }
    if (f->element && !gst_bin_add(GST_BIN(pipeline), f->element)) {
        return E_FAIL;
    }
    if (f->tee) {
        gst_bin_add(GST_BIN(pipeline), f->tee);
        if (!gst_element_link(f->element, f->tee)) {
            gst_bin_remove(GST_BIN(pipeline), f->tee);
            gst_bin_remove(GST_BIN(pipeline), f->element);
            return E_FAIL;
        }
    }
    f->add_ref();
    f->graph = this;
    f->graph_name = name;
    filters.push_back(f);
    return S_OK;
}

HRESULT Graph::remove_filter(media::BaseFilter* base) {
    auto* f = dynamic_cast<Filter*>(base);
    auto it = std::find(filters.begin(), filters.end(), f);
    if (f == nullptr || it == filters.end()) {
        return E_INVALIDARG;
    }
    for (auto& pin : f->pins) {
        if (pin->peer) {
            disconnect(pin->peer);
            disconnect(pin.get());
        }
    }
    filters.erase(it);
    if (f->tee) {
        gst_element_set_state(f->tee, GST_STATE_NULL);
        gst_bin_remove(GST_BIN(pipeline), f->tee);
    }
    if (f->element) {
        gst_element_set_state(f->element, GST_STATE_NULL);
        gst_bin_remove(GST_BIN(pipeline), f->element);
    }
    f->graph = nullptr;
    f->release();
    return S_OK;
}

HRESULT Graph::disconnect(media::Pin* base) {
    auto* pin = dynamic_cast<PinImpl*>(base);
    if (pin == nullptr) {
        return E_POINTER;
    }
    if (pin->peer == nullptr) {
        return S_FALSE;
    }
    PinImpl* out = pin->direction == PinDirection::output ? pin : pin->peer;
    unrealise(*out);
    pin->peer = nullptr;
    return S_OK;
}

HRESULT Graph::find_filter_by_name(const std::string& name, media::BaseFilter** out) {
    for (auto* f : filters) {
        if (f->graph_name == name) {
            f->add_ref();
            *out = f;
            return S_OK;
        }
    }
    *out = nullptr;
    return VFW_E_NOT_FOUND;
}

GstElement* Graph::add_capture_gate(Filter& source) {
    std::string file;
    for (auto* f : filters) {
        if (f->kind == Kind::mux && f->dv_writer) {
            file = f->file;
        }
    }
    GstElement* gate = make_frame_gate(
        carry, file, file.empty() ? "" : media::capture_log_path(file), source.friendly_name);
    gst_bin_add(GST_BIN(pipeline), gate);
    if (source.capture_gate) {
        gst_object_unref(source.capture_gate);
    }
    source.capture_gate = GST_ELEMENT(gst_object_ref(gate));
    return gate;
}

HRESULT Graph::run() {
    // Frames handed over at a recording break belong to the next file of that capture
    // only; a graph that runs without a capture file (the preview after a capture that
    // failed to go on) ends the hand-over.
    const bool capturing =
        std::any_of(filters.begin(), filters.end(), [](Filter* f) { return f->capture_gate; });
    if (!capturing) {
        std::lock_guard carrying(carry->lock);
        carry->clear();
    }
    running_wanted = true;
    lost_reported = false;
    const GstStateChangeReturn r = gst_element_set_state(pipeline, GST_STATE_PLAYING);
    if (r == GST_STATE_CHANGE_FAILURE) {
        gst_element_set_state(pipeline, GST_STATE_NULL);
        return E_FAIL;
    }
    return r == GST_STATE_CHANGE_ASYNC ? S_FALSE : S_OK;
}

HRESULT Graph::stop() {
    running_wanted = false;
    // EOS first, so that the file writer finishes the file from a drained pipeline
    // when it can; a source that does not stop on EOS is cut by going to NULL.
    GstState state = GST_STATE_NULL;
    gst_element_get_state(pipeline, &state, nullptr, 0);
    if (state == GST_STATE_PLAYING) {
        gst_element_send_event(pipeline, gst_event_new_eos());
        std::unique_lock guard(lock);
        drained.wait_for(guard, std::chrono::seconds(3), [this] { return eos_seen; });
    }
    gst_element_set_state(pipeline, GST_STATE_NULL);
    std::lock_guard guard(lock);
    eos_seen = false;
    return S_OK;
}

HRESULT Graph::set_notify_window(WindowHandle window, unsigned message, LParam data) {
    std::lock_guard guard(lock);
    notify_window = window;
    notify_message = message;
    notify_data = data;
    return S_OK;
}

HRESULT Graph::get_event(long* code, LParam* p1, LParam* p2, long timeout_ms) {
    std::unique_lock guard(lock);
    if (!queued.wait_for(guard, std::chrono::milliseconds(std::max(0L, timeout_ms)),
                         [this] { return !events.empty(); })) {
        return E_ABORT;
    }
    const Event e = events.front();
    events.pop_front();
    *code = e.code;
    *p1 = e.param1;
    *p2 = e.param2;
    return S_OK;
}

HRESULT Graph::free_event_params(long code, LParam p1, LParam) {
    release_params(code, p1);
    return S_OK;
}

HRESULT Graph::put_owner(WindowHandle owner) {
    std::lock_guard guard(video.lock);
    if (video.surface) {
        video.surface->clear();
    }
    video.surface = owner ? surfaces.surface_for(owner) : nullptr;
    return S_OK;
}

HRESULT Graph::put_window_style(long) {
    return S_OK;
}

HRESULT Graph::put_visible(long visible) {
    if (visible == media::OAFALSE) {
        std::lock_guard guard(video.lock);
        if (video.surface) {
            video.surface->clear();
        }
    }
    return S_OK;
}

HRESULT Graph::set_window_position(long, long, long width, long height) {
    std::lock_guard guard(video.lock);
    video.width = static_cast<int>(width);
    video.height = static_cast<int>(height);
    set_scale(video);
    return S_OK;
}

void Graph::release_params(long code, LParam p1) {
    if (code == media::EC_DEVICE_LOST && p1 != 0) {
        reinterpret_cast<Unknown*>(p1)->release();
    }
}

void Graph::queue_event(long code, LParam p1, LParam p2) {
    WindowHandle window = nullptr;
    unsigned message = 0;
    LParam data = 0;
    {
        std::lock_guard guard(lock);
        events.push_back({code, p1, p2});
        window = notify_window;
        message = notify_message;
        data = notify_data;
    }
    queued.notify_all();
    if (window != nullptr) {
        host.post_message(window, message, 0, data);
    }
}

Filter* Graph::filter_of(GstObject* object) {
    for (GstObject* o = object; o != nullptr; o = GST_OBJECT_PARENT(o)) {
        for (auto* f : filters) {
            if (GST_OBJECT(f->element) == o) {
                return f;
            }
        }
    }
    return nullptr;
}

GstBusSyncReply Graph::on_bus(GstBus*, GstMessage* message, gpointer data) {
    auto* self = static_cast<Graph*>(data);
    switch (GST_MESSAGE_TYPE(message)) {
        case GST_MESSAGE_EOS: {
            {
                std::lock_guard guard(self->lock);
                self->eos_seen = true;
            }
            self->drained.notify_all();
            if (self->running_wanted) {
                self->queue_event(media::EC_COMPLETE, 0, 0);
            }
            break;
        }
        case GST_MESSAGE_ERROR: {
            GError* error = nullptr;
            gchar* debug = nullptr;
            gst_message_parse_error(message, &error, &debug);
            g_warning("%s: %s (%s)", GST_OBJECT_NAME(GST_MESSAGE_SRC(message)),
                      error ? error->message : "error", debug ? debug : "");
            g_clear_error(&error);
            g_free(debug);
            // The filter list changes only on the UI thread while the graph is
            // stopped, so reading it from a streaming thread here is safe.
            Filter* f = self->filter_of(GST_MESSAGE_SRC(message));
            if (f && (f->kind == Kind::source || f->kind == Kind::audio_source)) {
                // A source that fails posts an error from each element it stops;
                // the device is lost once per run.
                if (self->lost_reported.exchange(true)) {
                    break;
                }
                void* identity = nullptr;
                f->query_interface(Iid::unknown, &identity);
                self->queue_event(media::EC_DEVICE_LOST, reinterpret_cast<LParam>(identity), 0);
            } else {
                self->queue_event(media::EC_ERRORABORT, E_FAIL, 0);
            }
            break;
        }
        default:
            break;
    }
    return GST_BUS_PASS;
}

namespace {

// Links `src` (taking its reference) to `element`'s sink; returns `element`'s src pad.
GstPad* link_through(GstPad* src, GstElement* element) {
    GstPad* sink = gst_element_get_static_pad(element, "sink");
    gst_pad_link(src, sink);
    gst_object_unref(sink);
    gst_object_unref(src);
    return gst_element_get_static_pad(element, "src");
}

// Counts the buffers leaving a source's capture branch, and the frames missing between
// them (a timestamp gap of more than half a frame beyond the next one's due time). Each
// run of the graph counts anew, as a capture filter does: a recording's count must not
// include the preview that ran before it.
GstPadProbeReturn count_frames(GstPad*, GstPadProbeInfo* info, gpointer data) {
    auto* filter = static_cast<Filter*>(data);
    if ((GST_PAD_PROBE_INFO_TYPE(info) & GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM) != 0) {
        if (GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) == GST_EVENT_STREAM_START) {
            filter->delivered = 0;
            filter->dropped = 0;
            filter->last_pts = GST_CLOCK_TIME_NONE;
        }
        return GST_PAD_PROBE_OK;
    }
    GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    const GstClockTime pts = GST_BUFFER_PTS(buffer);
    const GstClockTime duration = GST_BUFFER_DURATION(buffer);
    if (GST_CLOCK_TIME_IS_VALID(duration) && duration > 0) {
        filter->frame_duration = duration;
    }
    if (GST_CLOCK_TIME_IS_VALID(pts) && GST_CLOCK_TIME_IS_VALID(filter->last_pts) &&
        GST_CLOCK_TIME_IS_VALID(filter->frame_duration) && pts > filter->last_pts) {
        const GstClockTime gap = pts - filter->last_pts;
        const long missing =
            static_cast<long>((gap + filter->frame_duration / 2) / filter->frame_duration) - 1;
        if (missing > 0) {
            filter->dropped += missing;
        }
    }
    if (GST_CLOCK_TIME_IS_VALID(pts)) {
        filter->last_pts = pts;
    }
    ++filter->delivered;
    return GST_PAD_PROBE_OK;
}

// dvdemux names its pads "video" and "audio" as it finds the streams; a connection made
// before then is completed when the pad appears.
void link_when_added(GstElement*, GstPad* pad, gpointer data) {
    auto* pin = static_cast<PinImpl*>(data);
    gchar* name = gst_pad_get_name(pad);
    const bool video = g_str_has_prefix(name, "video");
    g_free(name);
    if (video == (pin->type != MajorType::audio) && pin->dynamic_target &&
        !gst_pad_is_linked(pin->dynamic_target)) {
        gst_pad_link(pad, pin->dynamic_target);
    }
}

}  // namespace

HRESULT Graph::connect(PinImpl& out, PinImpl& in) {
    if (out.peer || in.peer) {
        return VFW_E_ALREADY_CONNECTED;
    }
    Filter& from = out.owner;
    Filter& to = in.owner;
    GstBin* bin = GST_BIN(pipeline);
    GstPad* src = nullptr;
    bool dynamic = false;
    if (from.tee) {
        GstElement* queue = make("queue");
        // The capture branch must not lose frames to a slow preview, nor the preview
        // hold up the capture: the preview's queue leaks, the capture's is deep.
        if (out.name == "Preview") {
            g_object_set(queue, "leaky", 2, "max-size-buffers", 5, nullptr);
        } else {
            g_object_set(queue, "max-size-buffers", 200, "max-size-bytes", 0, "max-size-time",
                         G_GUINT64_CONSTANT(0), nullptr);
        }
        gst_bin_add(bin, queue);
        out.between.push_back(queue);
        out.tee_pad = gst_element_request_pad_simple(from.tee, "src_%u");
        GstPad* qsink = gst_element_get_static_pad(queue, "sink");
        gst_pad_link(out.tee_pad, qsink);
        gst_object_unref(qsink);
        src = gst_element_get_static_pad(queue, "src");
        if (out.name == "Capture" && from.dv &&
            (to.kind == Kind::mux || to.kind == Kind::splitter)) {
            // DV frames pass the gate that puts each into the right file and counts them.
            GstElement* gate = add_capture_gate(from);
            out.between.push_back(gate);
            src = link_through(src, gate);
        } else if (out.name == "Capture") {
            gst_pad_add_probe(src,
                              static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER |
                                                           GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM),
                              count_frames, &from, nullptr);
        }
        // Raw video and audio may need converting before a multiplexer takes them.
        if (!from.dv && to.kind == Kind::mux) {
            GstElement* convert =
                make(from.kind == Kind::audio_source ? "audioconvert" : "videoconvert");
            gst_bin_add(bin, convert);
            out.between.push_back(convert);
            src = link_through(src, convert);
        }
    } else if (from.kind == Kind::splitter) {
        dynamic = true;
    } else if (from.kind == Kind::mux && to.kind == Kind::file_writer) {
        src = from.dv_writer ? nullptr : gst_element_get_static_pad(from.element, "src");
    } else {
        src = gst_element_get_static_pad(from.element, "src");
    }

    GstPad* sink = nullptr;
    if (to.kind == Kind::mux) {
        const bool audio = out.type == MajorType::audio;
        out.mux_pad = gst_element_request_pad_simple(to.element, audio ? "audio_%u" : "video_%u");
        if (out.mux_pad == nullptr) {
            unrealise(out);
            if (src)
                gst_object_unref(src);
            return VFW_E_NO_ACCEPTABLE_TYPES;
        }
        sink = GST_PAD(gst_object_ref(out.mux_pad));
    } else if (to.kind != Kind::file_writer || !from.dv_writer) {
        sink = gst_element_get_static_pad(to.element, "sink");
    }

    HRESULT hr = S_OK;
    if (dynamic) {
        out.dynamic_on = from.element;
        out.dynamic_target = sink;
        sink = nullptr;
        out.dynamic_handler =
            g_signal_connect(from.element, "pad-added", G_CALLBACK(link_when_added), &out);
    } else if (src && sink && GST_PAD_LINK_FAILED(gst_pad_link(src, sink))) {
        hr = VFW_E_CANNOT_CONNECT;
    }
    if (src)
        gst_object_unref(src);
    if (sink)
        gst_object_unref(sink);
    if (failed(hr)) {
        unrealise(out);
        return hr;
    }
    out.peer = &in;
    in.peer = &out;
    return S_OK;
}

void Graph::unrealise(PinImpl& out) {
    GstBin* bin = GST_BIN(pipeline);
    if (out.dynamic_handler) {
        g_signal_handler_disconnect(out.dynamic_on, out.dynamic_handler);
        out.dynamic_handler = 0;
        out.dynamic_on = nullptr;
    }
    if (out.dynamic_target) {
        if (GstPad* peer = gst_pad_get_peer(out.dynamic_target)) {
            gst_pad_unlink(peer, out.dynamic_target);
            gst_object_unref(peer);
        }
        gst_object_unref(out.dynamic_target);
        out.dynamic_target = nullptr;
    }
    // Static links between filters' own elements.
    if (!out.owner.tee && out.owner.kind != Kind::splitter && out.owner.element) {
        if (GstPad* src = gst_element_get_static_pad(out.owner.element, "src")) {
            if (GstPad* peer = gst_pad_get_peer(src)) {
                gst_pad_unlink(src, peer);
                gst_object_unref(peer);
            }
            gst_object_unref(src);
        }
    }
    for (GstElement* e : out.between) {
        gst_element_set_state(e, GST_STATE_NULL);
        gst_bin_remove(bin, e);
    }
    out.between.clear();
    if (out.name == "Capture" && out.owner.capture_gate) {
        gst_object_unref(out.owner.capture_gate);
        out.owner.capture_gate = nullptr;
    }
    if (out.tee_pad) {
        gst_element_release_request_pad(out.owner.tee, out.tee_pad);
        gst_object_unref(out.tee_pad);
        out.tee_pad = nullptr;
    }
    if (out.mux_pad) {
        if (GstPad* peer = gst_pad_get_peer(out.mux_pad)) {
            gst_pad_unlink(peer, out.mux_pad);
            gst_object_unref(peer);
        }
        if (out.peer) {
            gst_element_release_request_pad(out.peer->owner.element, out.mux_pad);
        }
        gst_object_unref(out.mux_pad);
        out.mux_pad = nullptr;
    }
    if (out.peer) {
        out.peer->peer = nullptr;
    }
    out.peer = nullptr;
}

Filter* Graph::add_renderer(MajorType type, bool dv) {
    Filter* f = make_renderer(type, dv, &video);
    char name[48];
    std::snprintf(name, sizeof name, "%s Renderer %zu",
                  type == MajorType::audio && !dv ? "Audio" : "Video", filters.size());
    if (failed(add_filter(f, name))) {
        f->release();
        return nullptr;
    }
    f->release();  // the graph holds it
    return f;
}

}  // namespace kc::gst::detail
