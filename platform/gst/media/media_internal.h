// The objects the media platform's files share: reference counting, filters and their
// pins, the preview renderer's output and the graph. Each concern has its own file, and
// the graph and the capture graph builder reach into filters and pins directly, so their
// classes are declared once here. Private to platform/gst/media; the rest of the program
// sees gst_media.h only.
#pragma once

#include <gst/gst.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/capture/frame_gate.h"
#include "platform/gst/media/gst_media.h"
#include "platform/gst/source_provider.h"

namespace kc::gst::detail {

using media::MajorType;
using media::PinCategory;
using media::PinDirection;

// The graph's own failure codes, in the values the capture graph layer reports.
constexpr HRESULT VFW_E_NOT_CONNECTED = static_cast<HRESULT>(0x80040209u);
constexpr HRESULT VFW_E_DUPLICATE_NAME = static_cast<HRESULT>(0x8004023Cu);
constexpr HRESULT VFW_E_NOT_FOUND = static_cast<HRESULT>(0x80040216u);
constexpr HRESULT VFW_E_ALREADY_CONNECTED = static_cast<HRESULT>(0x80040204u);
constexpr HRESULT VFW_E_NO_ACCEPTABLE_TYPES = static_cast<HRESULT>(0x80040207u);
constexpr HRESULT VFW_E_CANNOT_CONNECT = static_cast<HRESULT>(0x80040217u);

template <class T>
HRESULT give(T* object, void** out) {
    object->add_ref();
    *out = object;
    return S_OK;
}

// Reference counting shared by every object of the media platform; the object deletes
// itself at zero.
class Counted {
  public:
    virtual ~Counted() = default;
    std::uint32_t up() { return ++refs; }
    std::uint32_t down() {
        const std::uint32_t left = --refs;
        if (left == 0) {
            delete this;
        }
        return left;
    }

  private:
    std::atomic<std::uint32_t> refs{1};
};

#define KC_COUNTED                     \
    std::uint32_t add_ref() override { \
        return up();                   \
    }                                  \
    std::uint32_t release() override { \
        return down();                 \
    }

enum class Kind { source, audio_source, compressor, splitter, mux, file_writer, renderer, decoder };

// The property pages a filter lists: its element's settings, and the DV decoder's
// display resolution.
constexpr media::Guid settings_page_id{0x6b630001, 0x4b43, 0x0001, {0x8a, 0x1d, 0, 0, 0, 0, 0, 1}};
constexpr media::Guid display_page_id{0x6b630002, 0x4b43, 0x0001, {0x8a, 0x1d, 0, 0, 0, 0, 0, 2}};

class Graph;
class Filter;

// A pin is part of its filter: it shares the filter's reference count.
class PinImpl : public media::Pin {
  public:
    PinImpl(Filter& owner_, PinDirection direction_, std::string name_, MajorType type_)
        : owner(owner_), direction(direction_), name(std::move(name_)), type(type_) {}
    HRESULT query_interface(Iid iid, void** out) override;
    std::uint32_t add_ref() override;
    std::uint32_t release() override;
    HRESULT connected_to(media::Pin** out) override;
    HRESULT query_pin_info(media::PinInfo& info) override;
    HRESULT query_direction(PinDirection& d) override;
    HRESULT enum_media_types(media::EnumMediaTypes** out) override;

    Filter& owner;
    PinDirection direction;
    std::string name;
    MajorType type;
    PinImpl* peer = nullptr;
    // What realises the connection in the pipeline (on the output side): elements put
    // in between, pads requested from a tee or a multiplexer, a pad-added handler.
    std::vector<GstElement*> between;
    GstPad* tee_pad = nullptr;
    GstPad* mux_pad = nullptr;
    GstElement* dynamic_on = nullptr;
    gulong dynamic_handler = 0;
    GstPad* dynamic_target = nullptr;
};

class Filter : public media::BaseFilter,
               public media::ConfigInterleaving,
               public media::FileSink,
               public media::DroppedFrames,
               public media::SceneSplit,
               public media::SpecifyPropertyPages,
               public Counted {
  public:
    Filter(Kind kind_, GstElement* element_);
    ~Filter() override;
    KC_COUNTED
    HRESULT query_interface(Iid iid, void** out) override;
    HRESULT enum_pins(media::EnumPins** out) override;
    HRESULT put_mode(int mode) override;
    HRESULT get_cur_file(std::string& path) override;
    HRESULT get_num_dropped(long* count) override;
    HRESULT get_num_not_dropped(long* count) override;
    HRESULT split_at_break() override;
    HRESULT get_break_held(long* held) override;
    HRESULT get_pages(std::vector<media::Guid>& pages) override;

    PinImpl* add_pin(PinDirection d, std::string name, MajorType type);

    Kind kind;
    GstElement* element;
    GstElement* tee = nullptr;  // sources: splits capture and preview
    bool dv = false;            // the source delivers DV
    bool dv_writer = false;     // a kestrelavisink multiplexer
    Unknown* control = nullptr;
    Graph* graph = nullptr;
    // A filter over an element inside another filter's bin (the preview's DV decoder): it
    // is named in the graph so that it can be found, and goes when that filter goes.
    Filter* part_of = nullptr;
    std::string graph_name;
    std::string friendly_name;  // sources: the device's name, for the capture log
    std::string file;
    // A DV source's capture branch while it writes a file: its frame gate, which counts
    // the frames (one reference, held from connection to disconnection).
    GstElement* capture_gate = nullptr;
    std::vector<std::unique_ptr<PinImpl>> pins;
    std::atomic<long> dropped{0};
    std::atomic<long> delivered{0};
    GstClockTime last_pts = GST_CLOCK_TIME_NONE;
    GstClockTime frame_duration = GST_CLOCK_TIME_NONE;
};

// Filters (filter.cpp). make() warns about a missing element and gives null.
GstElement* make(const char* factory, const char* name = nullptr);
Filter* make_filter_from_device(GstDevice* device, bool audio);
Filter* make_filter_from_provider(std::shared_ptr<SourceDevice> device);
Filter* make_compressor(GstElementFactory* factory, bool audio);
Filter* make_splitter();

// Property pages (property_pages.cpp): the pages of `ids` a filter has, and the user's
// changes applied to its element.
std::vector<PropertyPage> pages_of(Filter& filter, const std::vector<media::Guid>& ids);
void apply_changes(Filter& filter, const PropertyChanges& changes);

// The preview renderer (preview_renderer.cpp).

// Frames of the video renderer's appsink go to the surface of the pane that owns the
// video window; the pane's size and the decoded size set the scaling caps.
struct VideoOut {
    std::mutex lock;
    VideoSurface* surface = nullptr;
    // The capsfilter before the appsink, one reference held while its renderer is in the
    // graph: the pane can be resized after the renderer has gone.
    GstElement* caps = nullptr;
    int width = 0;  // the pane's client size
    int height = 0;
    int decoded_width = 0;  // what reaches the scaler
    int decoded_height = 0;
};
// Sets the capsfilter's caps from the sizes; `out.lock` held.
void set_scale(VideoOut& out);
// Lets go of the capsfilter when it belongs to `renderer`, which is leaving the graph.
void drop_scale(VideoOut& out, GstElement* renderer);
// The default renderer; a DV renderer gives its decoder in `decoder` (may be null).
Filter* make_renderer(MajorType type, bool dv, VideoOut* out, GstElement** decoder);

// The graph (graph.cpp).
struct Event {
    long code;
    LParam param1;
    LParam param2;
};

class Graph : public media::GraphBuilder,
              public media::MediaControl,
              public media::MediaEvent,
              public media::VideoWindow,
              public media::MediaSeeking,
              public Counted {
  public:
    Graph(DialogHost& host_, VideoSurfaces& surfaces_);
    ~Graph() override;
    KC_COUNTED
    HRESULT query_interface(Iid iid, void** out) override;

    // The running time of the graph, in the 100 ns units of media time; 0 before the
    // graph has run.
    HRESULT get_current_position(std::int64_t* position_100ns) override;

    HRESULT add_filter(media::BaseFilter* base, const std::string& name) override;
    HRESULT remove_filter(media::BaseFilter* base) override;
    HRESULT disconnect(media::Pin* base) override;
    HRESULT find_filter_by_name(const std::string& name, media::BaseFilter** out) override;
    HRESULT run() override;
    HRESULT stop() override;
    HRESULT set_notify_window(WindowHandle window, unsigned message, LParam data) override;
    HRESULT get_event(long* code, LParam* p1, LParam* p2, long timeout_ms) override;
    HRESULT free_event_params(long code, LParam p1, LParam) override;
    HRESULT put_owner(WindowHandle owner) override;
    HRESULT put_window_style(long) override;
    HRESULT put_visible(long visible) override;
    HRESULT set_window_position(long, long, long width, long height) override;

    // Realises the connection of `out` to `in` in the pipeline.
    HRESULT connect(PinImpl& out, PinImpl& in);
    Filter* add_renderer(MajorType type, bool dv);

    GstElement* pipeline = nullptr;
    std::vector<Filter*> filters;
    VideoOut video;
    // What one capture file hands to the next at a recording break; the graph lives as
    // long as the program, so it links the files of a capture across rebuilds.
    std::shared_ptr<capture::Carry> carry = std::make_shared<capture::Carry>();

  private:
    // The element that writes the capture file, or null in a graph without one.
    GstElement* file_writer() const;
    // The DV capture branch's gate for `source`, writing into the graph's DV file.
    GstElement* add_capture_gate(Filter& source);
    void release_params(long code, LParam p1);
    void unrealise(PinImpl& out);
    void queue_event(long code, LParam p1, LParam p2);
    // The filter whose element (or one inside it) posted a message.
    Filter* filter_of(GstObject* object);
    static GstBusSyncReply on_bus(GstBus*, GstMessage* message, gpointer data);

    DialogHost& host;
    VideoSurfaces& surfaces;
    std::mutex lock;
    std::condition_variable queued;
    std::condition_variable drained;
    std::deque<Event> events;
    // While the graph runs: the element writing the capture file, and whether its own
    // EOS has come.
    GstElement* awaited_writer = nullptr;
    bool writer_done = false;
    std::atomic<bool> running_wanted{false};
    std::atomic<bool> lost_reported{false};
    WindowHandle notify_window = nullptr;
    unsigned notify_message = 0;
    LParam notify_data = 0;
};

// The device lists (device_list.cpp).
media::CreateDevEnum* make_dev_enum();

// The capture graph builder (capture_builder.cpp).
media::CaptureGraphBuilder* make_capture_builder();

}  // namespace kc::gst::detail
