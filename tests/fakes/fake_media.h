// Recording fakes of every media interface (platform/media.h) for unit tests.
//
// Every fake object lives in a FakeLedger for the whole test: the ledger owns the
// memory, so a release too many never frees anything, and each object counts the
// references handed out to the code under test (0 = nobody but the test holds it).
// RefBaseline compares those counts before and after an operation, which is how a
// test proves that a failure path left nothing holding an interface.
//
// Every call the code under test makes is appended to FakeLedger::calls as
// "label.operation(arguments)" in call order, across all objects, so that orders
// between objects (graph, builder, filters, device control) can be checked.
//
// Every operation can be made to answer a scripted result, always or on its n-th
// call only (FakeScript). Operation names are the method names; interface queries are
// "query_interface.<interface>" (names from name_of(Iid)). For the "next" of an
// enumerator, a scripted S_FALSE means the end of the list. Transient objects
// (enumerators, monikers, property bags) read their scripts from the longer-lived
// object behind them: the filter for "enum_pins.next" / "enum_pins.reset", the pin
// for "enum_media_types.next", the catalogue for the device walk.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/dialog_host.h"
#include "platform/media.h"

// Failure results a real graph gives that the fakes reproduce.
inline constexpr HRESULT VFW_E_NOT_FOUND = static_cast<HRESULT>(0x80040216u);
inline constexpr HRESULT VFW_E_CANNOT_CONNECT = static_cast<HRESULT>(0x80040217u);
// A filter added under a name already in the graph gets a numbered name.
inline constexpr HRESULT VFW_S_DUPLICATE_NAME = 0x0004022D;

std::string name_of(Iid iid);
std::string name_of(media::Clsid clsid);
std::string name_of(media::DeviceCategory category);
std::string name_of(media::PinCategory category);
std::string name_of(media::MajorType type);

// Media types the fake filters offer; named apart from the Windows headers' GUIDs.
inline constexpr media::Guid MEDIASUBTYPE_YUY2_fake = media::fourcc_subtype('Y', 'U', 'Y', '2');
inline constexpr media::Guid MEDIASUBTYPE_RGB24_fake = media::fourcc_subtype('R', 'G', 'B', '3');
inline constexpr media::Guid MEDIASUBTYPE_PCM_fake = {
    0x00000001, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
media::MediaType dv_media_type(bool upper_case_subtype = false);
media::MediaType video_media_type(const media::Guid& subtype = MEDIASUBTYPE_YUY2_fake);
media::MediaType audio_media_type();
media::MajorType major_of(const media::Guid& major);

// Scripted results of one object's operations.
class FakeScript {
  public:
    // From now on `op` answers `hr`; with nth > 0 only its nth call (counted from 1)
    // does. `hr` may be a success code too (S_FALSE, ...).
    void fail(const std::string& op, HRESULT hr, int nth = 0);
    // Counts one call of `op` and gives its scripted result, or `normal`.
    HRESULT result(const std::string& op, HRESULT normal = S_OK);
    int calls(const std::string& op) const;
    void clear();

  private:
    std::map<std::string, HRESULT> always;
    std::map<std::string, std::map<int, HRESULT>> on_call;
    std::map<std::string, int> counts;
};

class FakeLedger;

// Bookkeeping shared by every fake object: label, reference count, script.
class FakeObject {
  public:
    FakeObject(FakeLedger& ledger, std::string label);
    FakeObject(const FakeObject&) = delete;
    FakeObject& operator=(const FakeObject&) = delete;
    virtual ~FakeObject() = default;

    const std::string& label() const { return label_; }
    // References held by the code under test (and by other fakes, as a real graph holds
    // its filters).
    int refs() const { return refs_; }
    void fail(const std::string& op, HRESULT hr, int nth = 0) { script.fail(op, hr, nth); }
    FakeScript script;

    // The pointer of the asked interface of this object, null when it has none.
    virtual void* interface_for(Iid iid) = 0;
    // The object's identity (its Iid::unknown pointer).
    Unknown* identity() { return static_cast<Unknown*>(interface_for(Iid::unknown)); }
    // Hands out one new reference to an interface, without recording or scripting; for
    // fakes that give out each other.
    HRESULT give(Iid iid, void** out);
    void add_ref_silently() { ++refs_; }
    void release_silently();

  protected:
    HRESULT fake_query(Iid iid, void** out);
    std::uint32_t fake_add_ref() { return static_cast<std::uint32_t>(++refs_); }
    std::uint32_t fake_release();
    // The last reference went: let go of what the object holds (a graph its filters, a
    // builder its graph).
    virtual void final_release() {}
    void log(const std::string& call);
    // Logs `call`, then gives the scripted result of `op`; on success `*out` = `value`.
    template <class T, class V>
    HRESULT answer(const std::string& call, const std::string& op, T* out, const V& value) {
        log(call);
        const HRESULT hr = script.result(op);
        if (succeeded(hr)) {
            *out = value;
        }
        return hr;
    }
    FakeLedger& ledger;

  private:
    std::string label_;
    int refs_ = 0;
};

// The three Unknown methods of a fake, overriding them in every interface base.
#define FAKE_UNKNOWN_METHODS                                \
    HRESULT query_interface(Iid iid, void** out) override { \
        return fake_query(iid, out);                        \
    }                                                       \
    std::uint32_t add_ref() override {                      \
        return fake_add_ref();                              \
    }                                                       \
    std::uint32_t release() override {                      \
        return fake_release();                              \
    }

// A fake with one interface besides Unknown.
template <class Interface, Iid id>
class FakeUnknown : public Interface, public FakeObject {
  public:
    using FakeObject::FakeObject;
    FAKE_UNKNOWN_METHODS
    void* interface_for(Iid iid) override {
        return iid == Iid::unknown || iid == id ? static_cast<Interface*>(this) : nullptr;
    }
};

using RefSnapshot = std::map<const FakeObject*, int>;

// Owner of every fake object of a test and the log of every call.
class FakeLedger {
  public:
    template <class T, class... Args>
    T& make(Args&&... args) {
        auto object = std::make_unique<T>(*this, std::forward<Args>(args)...);
        T& made = *object;
        objects.push_back(std::move(object));
        return made;
    }

    // Every call, "label.operation(arguments)", in order.
    std::vector<std::string> calls;
    bool called(const std::string& call) const;
    std::size_t count(const std::string& prefix) const;
    // The calls that start with `prefix`, in order.
    std::vector<std::string> matching(const std::string& prefix) const;
    // Position of the first call equal to `call`, -1 when there is none.
    int position(const std::string& call) const;

    RefSnapshot snapshot() const;
    // "label: before -> now" for every object whose count differs from the snapshot
    // (objects made since count from 0).
    std::vector<std::string> changed_since(const RefSnapshot& before) const;
    // "label: n" for every object still referenced.
    std::vector<std::string> held() const;
    // Objects released more often than referenced.
    std::vector<std::string> over_released;

  private:
    std::vector<std::unique_ptr<FakeObject>> objects;
};

// Reference counts of a ledger at construction, for comparison after an operation.
class RefBaseline {
  public:
    explicit RefBaseline(const FakeLedger& ledger) : ledger(ledger), before(ledger.snapshot()) {}
    // Empty when every count is back where it was.
    std::vector<std::string> changes() const { return ledger.changed_since(before); }

  private:
    const FakeLedger& ledger;
    RefSnapshot before;
};

// ---- Filters and pins ------------------------------------------------------------------

class FakeFilter;
class FakeGraph;

class FakePin : public FakeUnknown<media::Pin, Iid::pin> {
  public:
    FakePin(FakeLedger& ledger, FakeFilter& owner, std::string name, media::PinDirection direction,
            media::PinCategory category, std::vector<media::MediaType> types);

    // Scripts: "connected_to", "query_pin_info", "query_direction", "enum_media_types",
    // "enum_media_types.next".
    HRESULT connected_to(media::Pin** peer) override;
    HRESULT query_pin_info(media::PinInfo& info) override;
    HRESULT query_direction(media::PinDirection& direction) override;
    HRESULT enum_media_types(media::EnumMediaTypes** out) override;

    // Major type of the first media type (none without types).
    media::MajorType major() const;
    bool offers(const media::Guid& subtype) const;
    bool connected() const { return peer != nullptr; }

    FakeFilter& owner;
    std::string name;
    media::PinDirection direction;
    media::PinCategory category;
    std::vector<media::MediaType> types;
    // This end of a connection; each end is broken separately, as in a real graph.
    FakePin* peer = nullptr;
};

class FakeFilter : public media::BaseFilter, public media::SpecifyPropertyPages, public FakeObject {
  public:
    FakeFilter(FakeLedger& ledger, std::string name);
    FAKE_UNKNOWN_METHODS
    void* interface_for(Iid iid) override;

    // Scripts: "enum_pins", "enum_pins.next", "enum_pins.reset", "get_pages".
    HRESULT enum_pins(media::EnumPins** out) override;
    HRESULT get_pages(std::vector<media::Guid>& pages) override;

    FakePin& add_pin(const std::string& name, media::PinDirection direction,
                     media::PinCategory category = media::PinCategory::none,
                     std::vector<media::MediaType> types = {});
    // The pin of that name (null when there is none).
    FakePin* pin(const std::string& name) const;
    // The first output pin of the category (none: any) and major type (none: any);
    // only unconnected ones when `free_only`.
    FakePin* output(media::PinCategory category, media::MajorType type, bool free_only) const;
    // The first unconnected input / output pin; null when none is left.
    virtual FakePin* free_input();
    FakePin* free_output() const;

    // Whether it answers SpecifyPropertyPages, and the page ids it lists.
    bool has_property_pages = true;
    std::vector<media::Guid> pages{{0x1234, 1, 2, {}}};
    std::vector<FakePin*> pins;
};

// The AVI multiplexer: grows a new input pin whenever all are connected.
class FakeMux : public FakeFilter, public media::ConfigInterleaving {
  public:
    FakeMux(FakeLedger& ledger, std::string name = "AVI Mux");
    FAKE_UNKNOWN_METHODS
    void* interface_for(Iid iid) override;
    FakePin* free_input() override;
    // Script: "put_mode".
    HRESULT put_mode(int mode) override;
    std::vector<int> modes;
};

// The file writer of a capture.
class FakeFileWriter : public FakeFilter, public media::FileSink {
  public:
    FakeFileWriter(FakeLedger& ledger, std::string path);
    FAKE_UNKNOWN_METHODS
    void* interface_for(Iid iid) override;
    HRESULT get_cur_file(std::string& out) override;
    std::string path;
};

// A DV camcorder or deck: a capture filter with the three device-control interfaces.
// Default pins: "DV A/V Out" (capture, interleaved dvsd) and "DV A/V In".
class FakeDvFilter : public FakeFilter,
                     public media::ExtDevice,
                     public media::ExtTransport,
                     public media::TimecodeReader {
  public:
    FakeDvFilter(FakeLedger& ledger, std::string name = "DV Camcorder");
    FAKE_UNKNOWN_METHODS
    void* interface_for(Iid iid) override;

    // Script: "get_capability" (counts every capability asked).
    HRESULT get_capability(long capability, long* value, double* dbl_value) override;
    // Scripts: "put_mode", "get_status", "get_transport_basic_parameters".
    HRESULT put_mode(long mode) override;
    HRESULT get_status(long item, long* value) override;
    HRESULT get_transport_basic_parameters(long param, long* length, std::uint8_t* frame) override;
    // Scripts: "get_timecode.timecode" (flags ED_DEVCAP_TIMECODE_READ) and
    // "get_timecode.track" (ED_DEVCAP_ATN_READ). A failing read leaves the sample alone.
    HRESULT get_timecode(media::TimecodeSample& sample) override;

    long normal_rate = media::ED_RATE_25;
    long device_type = media::ED_DEVTYPE_VCR;
    std::uint32_t timecode_bcd = 0;  // hh mm ss ff, most significant byte first
    std::uint32_t user_bits = 0;
    std::uint32_t track = 0;
    // Answers of get_status for ED_MODE and ED_MODE_PLAY; put_mode moves them when
    // `follow_modes` (play: OATRUE, any other mode: OAFALSE).
    long status_mode = media::ED_MODE_STOP;
    long playing = media::OAFALSE;
    bool follow_modes = true;

    std::vector<long> capability_requests;
    std::vector<long> modes;  // put_mode, accepted or not
    struct RawCommand {
        long param = 0;
        long length = 0;
        std::vector<std::uint8_t> bytes;
    };
    std::vector<RawCommand> raw_commands;
    // Each sample as it arrived, before the answer was written.
    std::vector<media::TimecodeSample> timecode_requests;
};

// The capture pin's counters; with `splits`, also the scene splitter of a DV capture.
class FakeDroppedFrames : public media::DroppedFrames, public media::SceneSplit, public FakeObject {
  public:
    explicit FakeDroppedFrames(FakeLedger& ledger, std::string label = "dropped")
        : FakeObject(ledger, std::move(label)) {}
    FAKE_UNKNOWN_METHODS
    void* interface_for(Iid iid) override {
        if (iid == Iid::unknown || iid == Iid::dropped_frames) {
            return static_cast<media::DroppedFrames*>(this);
        }
        return iid == Iid::scene_split && splits ? static_cast<media::SceneSplit*>(this) : nullptr;
    }
    // Scripts: "get_num_dropped", "get_num_not_dropped", "split_at_break", "get_break_held".
    HRESULT get_num_dropped(long* count) override;
    HRESULT get_num_not_dropped(long* count) override;
    HRESULT split_at_break() override;
    HRESULT get_break_held(long* held) override;
    long dropped = 0;
    long not_dropped = 0;
    long break_held = 0;
    bool splits = true;
};

// Filters as the platform makes them.
FakeFilter& make_video_source(FakeLedger& ledger, const std::string& name);  // Capture, Preview
FakeFilter& make_audio_source(FakeLedger& ledger, const std::string& name);  // Capture
FakeFilter& make_compressor(FakeLedger& ledger, const std::string& name, media::MajorType type);
// Input, then "DVVidOut0" (video, dvsd) and "AudOut00" (audio).
FakeFilter& make_dv_splitter(FakeLedger& ledger, const std::string& name = "DV Splitter");

// ---- Device catalogue --------------------------------------------------------------------

struct FakeDevice {
    std::string name;
    FakeFilter* filter = nullptr;
    HRESULT bind_result = S_OK;     // bind_to_object
    HRESULT storage_result = S_OK;  // bind_to_storage
    bool has_friendly_name = true;  // read("FriendlyName") fails without it
};

// The devices of each category in enumeration order. Scripts: "create_class_enumerator"
// (S_FALSE: empty), "next" (the moniker walk), "bind_to_object", "bind_to_storage",
// "read" (counted over all devices; the per-device fields above come on top).
class FakeCatalogue {
  public:
    std::vector<FakeDevice>& operator[](media::DeviceCategory category) {
        return devices[category];
    }
    std::map<media::DeviceCategory, std::vector<FakeDevice>> devices;
    FakeScript script;
};

// ---- Graph, builder --------------------------------------------------------------------------

// The filter graph manager with its control, event, seeking and video-window faces, as
// one object (query_interface gives each; "query_interface.<name>" withholds it).
class FakeGraph : public media::GraphBuilder,
                  public media::MediaControl,
                  public media::MediaEvent,
                  public media::MediaSeeking,
                  public media::VideoWindow,
                  public FakeObject {
  public:
    FakeGraph(FakeLedger& ledger, std::string label = "graph");
    FAKE_UNKNOWN_METHODS
    void* interface_for(Iid iid) override;

    // Scripts: "add_filter", "remove_filter", "disconnect", "find_filter_by_name".
    HRESULT add_filter(media::BaseFilter* filter, const std::string& name) override;
    HRESULT remove_filter(media::BaseFilter* filter) override;
    HRESULT disconnect(media::Pin* pin) override;
    HRESULT find_filter_by_name(const std::string& name, media::BaseFilter** out) override;
    // Scripts: "run" (S_FALSE: still starting), "stop".
    HRESULT run() override;
    HRESULT stop() override;
    // Scripts: "set_notify_window", "get_event", "free_event_params".
    HRESULT set_notify_window(WindowHandle window, unsigned message, LParam instance_data) override;
    HRESULT get_event(long* code, LParam* param1, LParam* param2, long timeout_ms) override;
    HRESULT free_event_params(long code, LParam param1, LParam param2) override;
    // Script: "get_current_position".
    HRESULT get_current_position(std::int64_t* position_100ns) override;
    // Scripts: "put_owner", "put_window_style", "put_visible", "set_window_position".
    HRESULT put_owner(WindowHandle owner) override;
    HRESULT put_window_style(long style) override;
    HRESULT put_visible(long visible) override;
    HRESULT set_window_position(long left, long top, long width, long height) override;

    // What a builder does inside the graph: add a filter (the name made unique as the
    // graph does; the name given back) and connect two pins, both recorded.
    std::string insert(FakeFilter& filter, const std::string& name);
    void connect(FakePin& out, FakePin& in);

    struct Member {
        FakeFilter* filter;
        std::string name;
    };
    std::vector<Member> filters;
    bool contains(const FakeFilter& filter) const;
    FakeFilter* filter_named(const std::string& name) const;
    std::vector<std::string> filter_names() const;
    // "filter:pin" of pins still connected when their filter was removed (the graph
    // then breaks those links itself); a caller that disconnects first leaves it empty.
    std::vector<std::string> removed_while_connected;

    bool is_running = false;
    int runs = 0;
    int stops = 0;

    // Queues an event; with a notify window and `host`, posts the notify message the way
    // the platform does (wParam 0, lParam the instance data).
    void queue_event(long code, LParam param1 = 0, LParam param2 = 0);
    // EC_DEVICE_LOST with the filter's identity (one reference, freed with
    // free_event_params) as param1.
    void queue_device_lost(FakeFilter& filter);
    struct Event {
        long code;
        LParam param1;
        LParam param2;
    };
    std::deque<Event> events;
    std::vector<Event> freed_events;
    DialogHost* host = nullptr;
    WindowHandle notify_window = nullptr;
    unsigned notify_message = 0;
    LParam notify_data = 0;

    std::int64_t position_100ns = 0;

    WindowHandle owner = nullptr;
    long style = 0;
    long visible = media::OAFALSE;
    struct Position {
        long left = 0, top = 0, width = 0, height = 0;
        friend bool operator==(const Position&, const Position&) = default;
    };
    Position position;

  protected:
    void final_release() override;
};

// The capture graph builder. render_stream records each request and connects the fake
// filters as a builder would: the source's pin of the category and type (through a
// "Smart Tee" when the source has no preview pin of its own), then the intermediate
// filter, then the sink (a new input of the multiplexer), or without a sink the
// default renderers: interleaved DV through a "DV Splitter", DV video through a
// "DV Video Decoder" into a "Video Renderer", audio into an "Audio Renderer".
class FakeCaptureBuilder
    : public FakeUnknown<media::CaptureGraphBuilder, Iid::capture_graph_builder> {
  public:
    FakeCaptureBuilder(FakeLedger& ledger, std::string label = "builder");

    // Scripts: "set_filtergraph", "set_output_file_name", "render_stream",
    // "find_interface".
    HRESULT set_filtergraph(media::GraphBuilder* graph) override;
    HRESULT set_output_file_name(const std::string& path, media::BaseFilter** mux,
                                 media::FileSink** sink) override;
    HRESULT render_stream(media::PinCategory category, media::MajorType type, Unknown* source,
                          media::BaseFilter* intermediate, media::BaseFilter* sink) override;
    HRESULT find_interface(media::PinCategory category, media::MajorType type,
                           media::BaseFilter* filter, Iid iid, void** out) override;

    struct Request {
        media::PinCategory category;
        media::MajorType type;
        FakeFilter* source;
        FakeFilter* intermediate;
        FakeFilter* sink;
        HRESULT result;
        // "capture interleaved DV Camcorder -> - -> AVI Mux"
        std::string describe() const;
    };
    std::vector<Request> requests;
    std::vector<std::string> described_requests() const;

    struct Find {
        media::PinCategory category;
        media::MajorType type;
        FakeFilter* filter;
        Iid iid;
    };
    std::vector<Find> finds;
    // What find_interface gives for Iid::dropped_frames.
    FakeDroppedFrames& dropped;

    FakeGraph* graph = nullptr;  // held with a reference after set_filtergraph
    // Made by set_output_file_name (the last ones).
    FakeMux* mux = nullptr;
    FakeFileWriter* writer = nullptr;
    std::vector<std::string> output_paths;

  protected:
    void final_release() override;

  private:
    FakePin* start_pin(FakeFilter& source, media::PinCategory category, media::MajorType type);
    FakeFilter& insert_tee(FakePin& capture);
    bool render_default(FakePin& out);
    HRESULT connect_request(const Request& request, FakePin* source_pin);
    FakeFilter& add_new(FakeFilter& filter);
};

// ---- The factory -----------------------------------------------------------------------------

// The platform's object factory, with the whole fake media world behind it: the ledger,
// the device catalogue with fixed lists, one graph and one builder (each
// create_instance of them gives the same object), DV splitters made on demand, and the
// property frames shown.
//
// Standard catalogue:
//   video_input:      "DV Camcorder" (dv_camera), "USB Video Device" (webcam)
//   audio_input:      "Microphone" (microphone), "Line In" (line_in)
//   video_compressor: "MJPEG Compressor", "Cinepak Codec", "Indeo Video"
//   audio_compressor: "IMA ADPCM", "MPEG Layer-3"
class FakeMediaFactory : public media::MediaFactory {
  public:
    FakeMediaFactory();

    // Scripts: "create_instance.<clsid>" (names from name_of(Clsid)),
    // "create_property_frame".
    HRESULT create_instance(media::Clsid clsid, Iid iid, void** out) override;
    HRESULT create_property_frame(WindowHandle owner, const std::string& caption, Unknown* object,
                                  const std::vector<media::Guid>& pages) override;
    void fail(const std::string& op, HRESULT hr, int nth = 0) { script.fail(op, hr, nth); }

    FakeLedger ledger;  // first: outlives every object below
    FakeScript script;
    FakeCatalogue catalogue;
    FakeGraph& graph;
    FakeCaptureBuilder& builder;

    FakeDvFilter& dv_camera;
    FakeFilter& webcam;
    FakeFilter& microphone;
    FakeFilter& line_in;
    std::vector<FakeFilter*> video_compressors;
    std::vector<FakeFilter*> audio_compressors;
    // DV splitters made through create_instance, in order.
    std::vector<FakeFilter*> splitters;

    struct PropertyFrame {
        WindowHandle owner;
        std::string caption;
        Unknown* object;
        std::vector<media::Guid> pages;
    };
    std::vector<PropertyFrame> frames;
};
