// Media interfaces: device categories, filters and pins, the filter graph and the
// capture graph builder, running and events, the video window, DV device control.
//
// They mirror, one operation per call, what the capture graph layer asks of the
// platform's media services, with HRESULT-style results. The GStreamer platform, the
// virtual deck and FireWire device control implement them on Linux; the fakes of the
// tests record them. Nothing here belongs to any one media framework.
//
// Ownership: every interface pointer handed out through an out-parameter carries one
// reference that the receiver releases. Calls are made on the user-interface thread.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/unknown.h"
#include "platform/window.h"

namespace media {

// ---- Identifiers ---------------------------------------------------------------

// What create_instance makes.
enum class Clsid { system_device_enum, filter_graph, capture_graph_builder, dv_splitter };

enum class DeviceCategory { video_input, audio_input, video_compressor, audio_compressor };

enum class PinCategory { none, capture, preview };
enum class MajorType { none, interleaved, video, audio };
enum class PinDirection { input, output };

struct Guid {
    std::uint32_t data1 = 0;
    std::uint16_t data2 = 0;
    std::uint16_t data3 = 0;
    std::array<std::uint8_t, 8> data4{};
    friend bool operator==(const Guid&, const Guid&) = default;
};

// A FOURCC media subtype: the four characters as data1 (first character in the low
// byte) on the standard FOURCC base 0000-0010-8000-00AA00389B71.
constexpr Guid fourcc_subtype(char a, char b, char c, char d) {
    return Guid{static_cast<std::uint32_t>(static_cast<std::uint8_t>(a)) |
                    (static_cast<std::uint32_t>(static_cast<std::uint8_t>(b)) << 8) |
                    (static_cast<std::uint32_t>(static_cast<std::uint8_t>(c)) << 16) |
                    (static_cast<std::uint32_t>(static_cast<std::uint8_t>(d)) << 24),
                0x0000,
                0x0010,
                {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
}
inline constexpr Guid MEDIASUBTYPE_dvsd = fourcc_subtype('d', 'v', 's', 'd');
inline constexpr Guid MEDIASUBTYPE_DVSD_upper = fourcc_subtype('D', 'V', 'S', 'D');
inline constexpr Guid MEDIATYPE_Interleaved_guid = fourcc_subtype('i', 'a', 'v', 's');
inline constexpr Guid MEDIATYPE_Video_guid = fourcc_subtype('v', 'i', 'd', 's');
inline constexpr Guid MEDIATYPE_Audio_guid = fourcc_subtype('a', 'u', 'd', 's');

struct MediaType {
    Guid major;
    Guid subtype;
    std::vector<std::uint8_t> format;
};

// ---- Filters and pins --------------------------------------------------------------

class BaseFilter;
class Pin;

struct PinInfo {
    BaseFilter* filter = nullptr;  // one reference, released by the receiver
    PinDirection direction = PinDirection::input;
    std::string name;
};

class EnumMediaTypes : public Unknown {
  public:
    static constexpr Iid iid = Iid::enum_media_types;
    // S_OK with *fetched 1 and `out` filled, or S_FALSE with *fetched 0 at the end.
    virtual HRESULT next(MediaType& out, std::uint32_t* fetched) = 0;
};

class Pin : public Unknown {
  public:
    static constexpr Iid iid = Iid::pin;
    // Fails (and gives null) when the pin is not connected.
    virtual HRESULT connected_to(Pin** peer) = 0;
    virtual HRESULT query_pin_info(PinInfo& info) = 0;
    virtual HRESULT query_direction(PinDirection& direction) = 0;
    virtual HRESULT enum_media_types(EnumMediaTypes** out) = 0;
};

class EnumPins : public Unknown {
  public:
    static constexpr Iid iid = Iid::enum_pins;
    // S_OK with one pin, anything else at the end.
    virtual HRESULT next(Pin** out) = 0;
    virtual HRESULT reset() = 0;
};

class BaseFilter : public Unknown {
  public:
    static constexpr Iid iid = Iid::base_filter;
    virtual HRESULT enum_pins(EnumPins** out) = 0;
};

// The AVI multiplexer's interleaving setting.
inline constexpr int INTERLEAVE_NONE = 0;
class ConfigInterleaving : public Unknown {
  public:
    static constexpr Iid iid = Iid::config_interleaving;
    virtual HRESULT put_mode(int mode) = 0;
};

// The file writer of a capture.
class FileSink : public Unknown {
  public:
    static constexpr Iid iid = Iid::file_sink;
    virtual HRESULT get_cur_file(std::string& path) = 0;
};

// Frame counters of a capture source's capture pin.
class DroppedFrames : public Unknown {
  public:
    static constexpr Iid iid = Iid::dropped_frames;
    virtual HRESULT get_num_dropped(long* count) = 0;
    virtual HRESULT get_num_not_dropped(long* count) = 0;
};

// Frame-exact scene files. The capture pin of a DV source that reads every frame's subcode
// answers this beside its frame counters. The capture calls it when it has decided that the
// recording changed, before it stops the tape: the file being written then ends with the
// last frame before the latest recording break the stream shows by its end (or, if none
// shows, with the frames taken so far), and the frames from there on open the next capture
// file of this graph, without the frames the tape repeats after it is played again.
//
// It also says whether the stream shows a recording break the capture has not split at:
// a flag raised for fewer frames than lie between two of the capture's looks at the tape
// is seen only there. *held is OATRUE then, else 0.
class SceneSplit : public Unknown {
  public:
    static constexpr Iid iid = Iid::scene_split;
    virtual HRESULT split_at_break() = 0;
    virtual HRESULT get_break_held(long* held) = 0;
};

// The text log written beside a capture file (the file's name with ".log" for its
// extension), and deleted with it.
inline std::string capture_log_path(const std::string& file) {
    const std::size_t dot = file.rfind('.');
    const std::size_t slash = file.find_last_of("/\\");
    const bool has_extension =
        dot != std::string::npos && (slash == std::string::npos || dot > slash);
    return (has_extension ? file.substr(0, dot) : file) + ".log";
}

// The name under which a DV preview's decoder is in the graph: the properties dialog
// finds it by this name to open its pages.
inline constexpr const char* dv_decoder_filter_name = "DV Video Decoder";

// Property pages of an object. Page ids name the pages the host can show for it.
class SpecifyPropertyPages : public Unknown {
  public:
    static constexpr Iid iid = Iid::specify_property_pages;
    virtual HRESULT get_pages(std::vector<Guid>& pages) = 0;
};

// ---- Device categories ---------------------------------------------------------------

class PropertyBag : public Unknown {
  public:
    static constexpr Iid iid = Iid::property_bag;
    // Reads a string property ("FriendlyName"); fails when it is missing.
    virtual HRESULT read(const std::string& name, std::string& value) = 0;
};

class Moniker : public Unknown {
  public:
    static constexpr Iid iid = Iid::moniker;
    // Creates the device's filter (iid is Iid::base_filter).
    virtual HRESULT bind_to_object(Iid iid, void** out) = 0;
    virtual HRESULT bind_to_storage(PropertyBag** out) = 0;
};

class EnumMoniker : public Unknown {
  public:
    static constexpr Iid iid = Iid::enum_moniker;
    // S_OK with one moniker, anything else at the end.
    virtual HRESULT next(Moniker** out) = 0;
};

class CreateDevEnum : public Unknown {
  public:
    static constexpr Iid iid = Iid::create_dev_enum;
    // The devices of a category in a stable order. S_FALSE with a null enumerator
    // means the category is empty.
    virtual HRESULT create_class_enumerator(DeviceCategory category, EnumMoniker** out,
                                            std::uint32_t flags) = 0;
};

// ---- Graph ---------------------------------------------------------------------------

class GraphBuilder : public Unknown {
  public:
    static constexpr Iid iid = Iid::graph_builder;
    virtual HRESULT add_filter(BaseFilter* filter, const std::string& name) = 0;
    virtual HRESULT remove_filter(BaseFilter* filter) = 0;
    // Breaks the connection at this pin only (each end is disconnected separately).
    virtual HRESULT disconnect(Pin* pin) = 0;
    virtual HRESULT find_filter_by_name(const std::string& name, BaseFilter** out) = 0;
};

class CaptureGraphBuilder : public Unknown {
  public:
    static constexpr Iid iid = Iid::capture_graph_builder;
    virtual HRESULT set_filtergraph(GraphBuilder* graph) = 0;
    // Creates the AVI multiplexer and the file writer for `path`, adds both to the
    // graph and connects them.
    virtual HRESULT set_output_file_name(const std::string& path, BaseFilter** mux,
                                         FileSink** sink) = 0;
    // Connects the `category` pin of `source` with `type` through `intermediate`
    // (may be null) to `sink` (null: the default renderers).
    virtual HRESULT render_stream(PinCategory category, MajorType type, Unknown* source,
                                  BaseFilter* intermediate, BaseFilter* sink) = 0;
    // Finds an interface on the `category` pin of `filter` with `type`, or downstream.
    virtual HRESULT find_interface(PinCategory category, MajorType type, BaseFilter* filter,
                                   Iid iid, void** out) = 0;
};

// ---- Running, events, video window ---------------------------------------------------------

class MediaControl : public Unknown {
  public:
    static constexpr Iid iid = Iid::media_control;
    // S_FALSE from run: the graph is still starting (counts as running).
    virtual HRESULT run() = 0;
    virtual HRESULT stop() = 0;
};

// Event codes.
inline constexpr long EC_COMPLETE = 0x01;
inline constexpr long EC_USERABORT = 0x02;
inline constexpr long EC_ERRORABORT = 0x03;
inline constexpr long EC_DEVICE_LOST = 0x1F;  // param1: the lost device's Unknown

class MediaEvent : public Unknown {
  public:
    static constexpr Iid iid = Iid::media_event;
    // From now on `message` is posted to `window` (with wParam 0 and lParam
    // `instance_data`) whenever an event is queued, from whatever thread raised it.
    virtual HRESULT set_notify_window(WindowHandle window, unsigned message,
                                      LParam instance_data) = 0;
    // Takes the next queued event; fails when none arrives within timeout_ms.
    virtual HRESULT get_event(long* code, LParam* param1, LParam* param2, long timeout_ms) = 0;
    virtual HRESULT free_event_params(long code, LParam param1, LParam param2) = 0;
};

class MediaSeeking : public Unknown {
  public:
    static constexpr Iid iid = Iid::media_seeking;
    virtual HRESULT get_current_position(std::int64_t* position_100ns) = 0;
};

inline constexpr long OATRUE = -1;
inline constexpr long OAFALSE = 0;
inline constexpr long WS_CHILD = 0x40000000;
inline constexpr long WS_CLIPCHILDREN = 0x02000000;

// The video renderer's window, placed as a child of a pane of a dialog.
class VideoWindow : public Unknown {
  public:
    static constexpr Iid iid = Iid::video_window;
    virtual HRESULT put_owner(WindowHandle owner) = 0;
    virtual HRESULT put_window_style(long style) = 0;
    virtual HRESULT put_visible(long visible) = 0;
    virtual HRESULT set_window_position(long left, long top, long width, long height) = 0;
};

// ---- DV device control ----------------------------------------------------------------------

inline constexpr long ED_DEVCAP_DEVICE_TYPE = 4103;
inline constexpr long ED_DEVTYPE_VCR = 4104;
inline constexpr long ED_DEVTYPE_CAMERA = 4996;
inline constexpr long ED_DEVCAP_NORMAL_RATE = 4131;
// Windows' values: the adapters there pass device answers through untranslated.
inline constexpr long ED_RATE_30 = 4135;
inline constexpr long ED_RATE_25 = 4133;
inline constexpr long ED_RATE_2997 = 4134;
inline constexpr long ED_FORMAT_SMPTE_30 = 4502;
inline constexpr long ED_FORMAT_SMPTE_30DROP = 4503;
inline constexpr long ED_FORMAT_SMPTE_25 = 4504;
inline constexpr long ED_FORMAT_SMPTE_24 = 4505;
inline constexpr long ED_DEVCAP_TIMECODE_READ = 4121;
inline constexpr long ED_DEVCAP_ATN_READ = 5047;
inline constexpr long ED_RAW_EXT_DEV_CMD = 5016;
inline constexpr long ED_MODE = 4596;

inline constexpr long ED_MODE_PLAY = 4296;
inline constexpr long ED_MODE_STOP = 4297;
inline constexpr long ED_MODE_FREEZE = 4298;
inline constexpr long ED_MODE_THAW = 4299;
inline constexpr long ED_MODE_FF = 4300;
inline constexpr long ED_MODE_REW = 4301;
inline constexpr long ED_MODE_RECORD = 4302;
inline constexpr long ED_MODE_RECORD_STROBE = 4303;
inline constexpr long ED_MODE_STEP_FWD = 4304;
inline constexpr long ED_MODE_STEP_REV = 4905;
inline constexpr long ED_MODE_PLAY_FASTEST_FWD = 5029;
inline constexpr long ED_MODE_PLAY_SLOWEST_FWD = 5030;
inline constexpr long ED_MODE_PLAY_FASTEST_REV = 5031;
inline constexpr long ED_MODE_PLAY_SLOWEST_REV = 5032;

class ExtDevice : public Unknown {
  public:
    static constexpr Iid iid = Iid::ext_device;
    // `dbl_value` may be null.
    virtual HRESULT get_capability(long capability, long* value, double* dbl_value) = 0;
};

class ExtTransport : public Unknown {
  public:
    static constexpr Iid iid = Iid::ext_transport;
    virtual HRESULT put_mode(long mode) = 0;
    // Status item ED_MODE gives the current mode; ED_MODE_PLAY gives OATRUE while
    // the tape plays.
    virtual HRESULT get_status(long item, long* value) = 0;
    // With ED_RAW_EXT_DEV_CMD: sends the *length bytes of `frame` as one AV/C command
    // and returns with the device's final response. A command the device carries out over
    // time (the ABSOLUTE TRACK NUMBER search) returns when it is done, or fails when it
    // fails or does not finish within the driver's time limit.
    virtual HRESULT get_transport_basic_parameters(long param, long* length,
                                                   std::uint8_t* frame) = 0;
};

// One timecode request and its answer.
struct TimecodeSample {
    long flags = 0;            // ED_DEVCAP_TIMECODE_READ or ED_DEVCAP_ATN_READ
    std::uint32_t frames = 0;  // packed BCD hh:mm:ss:ff, or the absolute track number
    std::uint32_t user = 0;    // user bits; bit 0 is the user flag
};

class TimecodeReader : public Unknown {
  public:
    static constexpr Iid iid = Iid::timecode_reader;
    virtual HRESULT get_timecode(TimecodeSample& sample) = 0;
};

// ---- Creating platform objects -----------------------------------------------------------

class MediaFactory {
  public:
    virtual ~MediaFactory() = default;
    // Creates one of the platform's objects and gives the asked interface of it.
    virtual HRESULT create_instance(Clsid clsid, Iid iid, void** out) = 0;
    // Runs the modal property frame of `object` with its pages; returns when the
    // user closes it.
    virtual HRESULT create_property_frame(WindowHandle owner, const std::string& caption,
                                          Unknown* object, const std::vector<Guid>& pages) = 0;
};

}  // namespace media
