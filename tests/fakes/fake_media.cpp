#include "tests/fakes/fake_media.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string_view>

using media::MajorType;
using media::PinCategory;
using media::PinDirection;

// ---- Names ------------------------------------------------------------------------------

namespace {
// Names of an enumeration's values in declaration order, separated by spaces.
constexpr std::size_t word_count(std::string_view words) {
    return static_cast<std::size_t>(std::count(words.begin(), words.end(), ' ')) + 1;
}

template <class E>
std::string name_in(E value, std::string_view words) {
    for (auto i = static_cast<std::size_t>(value); i > 0; --i) {
        const auto space = words.find(' ');
        if (space == std::string_view::npos) {
            return "?";
        }
        words.remove_prefix(space + 1);
    }
    return std::string(words.substr(0, words.find(' ')));
}

constexpr std::string_view iid_names =
    "unknown base_filter pin enum_pins enum_media_types graph_builder capture_graph_builder "
    "media_control media_event media_seeking video_window ext_device ext_transport "
    "timecode_reader dropped_frames scene_split config_interleaving file_sink "
    "specify_property_pages "
    "create_dev_enum enum_moniker moniker property_bag";
static_assert(word_count(iid_names) == static_cast<std::size_t>(Iid::property_bag) + 1);
constexpr std::string_view clsid_names =
    "system_device_enum filter_graph capture_graph_builder dv_splitter";
static_assert(word_count(clsid_names) == static_cast<std::size_t>(media::Clsid::dv_splitter) + 1);
constexpr std::string_view category_names =
    "video_input audio_input video_compressor audio_compressor";
static_assert(word_count(category_names) ==
              static_cast<std::size_t>(media::DeviceCategory::audio_compressor) + 1);
}  // namespace

std::string name_of(Iid iid) {
    return name_in(iid, iid_names);
}

std::string name_of(media::Clsid clsid) {
    return name_in(clsid, clsid_names);
}

std::string name_of(media::DeviceCategory category) {
    return name_in(category, category_names);
}

std::string name_of(PinCategory category) {
    return name_in(category, "none capture preview");
}

std::string name_of(MajorType type) {
    return name_in(type, "none interleaved video audio");
}

namespace {
std::string filter_label(const FakeFilter* filter) {
    return filter ? filter->label() : std::string("-");
}

std::string pin_label(const FakePin& pin) {
    return pin.owner.label() + ":" + pin.name;
}

// The fake behind an interface pointer the code under test handed in.
template <class Fake, class Interface>
Fake* fake_of(Interface* object) {
    return object ? dynamic_cast<Fake*>(object) : nullptr;
}
}  // namespace

media::MediaType dv_media_type(bool upper_case_subtype) {
    return {media::MEDIATYPE_Interleaved_guid,
            upper_case_subtype ? media::MEDIASUBTYPE_DVSD_upper : media::MEDIASUBTYPE_dvsd,
            {}};
}

media::MediaType video_media_type(const media::Guid& subtype) {
    return {media::MEDIATYPE_Video_guid, subtype, {}};
}

media::MediaType audio_media_type() {
    return {media::MEDIATYPE_Audio_guid, MEDIASUBTYPE_PCM_fake, {}};
}

MajorType major_of(const media::Guid& major) {
    if (major == media::MEDIATYPE_Interleaved_guid) {
        return MajorType::interleaved;
    }
    if (major == media::MEDIATYPE_Video_guid) {
        return MajorType::video;
    }
    if (major == media::MEDIATYPE_Audio_guid) {
        return MajorType::audio;
    }
    return MajorType::none;
}

// ---- Script, object, ledger ------------------------------------------------------------------

void FakeScript::fail(const std::string& op, HRESULT hr, int nth) {
    if (nth > 0) {
        on_call[op][nth] = hr;
    } else {
        always[op] = hr;
    }
}

HRESULT FakeScript::result(const std::string& op, HRESULT normal) {
    const int n = ++counts[op];
    auto scripted = on_call.find(op);
    if (scripted != on_call.end()) {
        auto at = scripted->second.find(n);
        if (at != scripted->second.end()) {
            return at->second;
        }
    }
    auto all = always.find(op);
    return all != always.end() ? all->second : normal;
}

int FakeScript::calls(const std::string& op) const {
    auto it = counts.find(op);
    return it == counts.end() ? 0 : it->second;
}

void FakeScript::clear() {
    always.clear();
    on_call.clear();
}

FakeObject::FakeObject(FakeLedger& ledger_, std::string label)
    : ledger(ledger_), label_(std::move(label)) {}

HRESULT FakeObject::give(Iid iid, void** out) {
    *out = interface_for(iid);
    if (*out == nullptr) {
        return E_NOINTERFACE;
    }
    ++refs_;
    return S_OK;
}

HRESULT FakeObject::fake_query(Iid iid, void** out) {
    log("query_interface(" + name_of(iid) + ")");
    const HRESULT hr = script.result("query_interface." + name_of(iid));
    if (failed(hr)) {
        *out = nullptr;
        return hr;
    }
    return give(iid, out);
}

void FakeObject::release_silently() {
    fake_release();
}

std::uint32_t FakeObject::fake_release() {
    if (refs_ <= 0) {
        ledger.over_released.push_back(label_);
        return 0;
    }
    if (--refs_ == 0) {
        final_release();
    }
    return static_cast<std::uint32_t>(refs_);
}

void FakeObject::log(const std::string& call) {
    ledger.calls.push_back(label_ + "." + call);
}

bool FakeLedger::called(const std::string& call) const {
    return std::find(calls.begin(), calls.end(), call) != calls.end();
}

std::size_t FakeLedger::count(const std::string& prefix) const {
    return matching(prefix).size();
}

std::vector<std::string> FakeLedger::matching(const std::string& prefix) const {
    std::vector<std::string> found;
    for (const auto& call : calls) {
        if (call.rfind(prefix, 0) == 0) {
            found.push_back(call);
        }
    }
    return found;
}

int FakeLedger::position(const std::string& call) const {
    auto it = std::find(calls.begin(), calls.end(), call);
    return it == calls.end() ? -1 : static_cast<int>(it - calls.begin());
}

RefSnapshot FakeLedger::snapshot() const {
    RefSnapshot counts;
    for (const auto& object : objects) {
        counts[object.get()] = object->refs();
    }
    return counts;
}

std::vector<std::string> FakeLedger::changed_since(const RefSnapshot& before) const {
    std::vector<std::string> changes;
    for (const auto& object : objects) {
        auto it = before.find(object.get());
        const int was = it == before.end() ? 0 : it->second;
        if (object->refs() != was) {
            changes.push_back(object->label() + ": " + std::to_string(was) + " -> " +
                              std::to_string(object->refs()));
        }
    }
    for (const auto& label : over_released) {
        changes.push_back(label + ": released too often");
    }
    return changes;
}

std::vector<std::string> FakeLedger::held() const {
    std::vector<std::string> found;
    for (const auto& object : objects) {
        if (object->refs() != 0) {
            found.push_back(object->label() + ": " + std::to_string(object->refs()));
        }
    }
    return found;
}

// ---- Enumerators ---------------------------------------------------------------------------

namespace {
// One step of an enumerator: the scripted answer of its owner first (S_FALSE or a
// failure ends the walk there), then the next of `items`, handed out by `give`.
template <class Items, class Give>
HRESULT next_item(HRESULT scripted, const Items& items, std::size_t& position, Give give) {
    if (scripted != S_OK) {
        return scripted;
    }
    if (position >= items.size()) {
        return S_FALSE;
    }
    give(items[position++]);
    return S_OK;
}

class FakeEnumMediaTypes : public FakeUnknown<media::EnumMediaTypes, Iid::enum_media_types> {
  public:
    FakeEnumMediaTypes(FakeLedger& ledger, FakePin& pin)
        : FakeUnknown(ledger, "enum_media_types:" + pin_label(pin)), pin(pin) {}
    HRESULT next(media::MediaType& out, std::uint32_t* fetched) override {
        log("next");
        std::uint32_t got = 0;
        const HRESULT hr = next_item(pin.script.result("enum_media_types.next"), pin.types,
                                     position, [&](const media::MediaType& t) {
                                         out = t;
                                         got = 1;
                                     });
        if (fetched) {
            *fetched = got;
        }
        return hr;
    }

  private:
    FakePin& pin;
    std::size_t position = 0;
};

class FakeEnumPins : public FakeUnknown<media::EnumPins, Iid::enum_pins> {
  public:
    FakeEnumPins(FakeLedger& ledger, FakeFilter& filter)
        : FakeUnknown(ledger, "enum_pins:" + filter.label()), filter(filter), pins(filter.pins) {}
    HRESULT next(media::Pin** out) override {
        log("next");
        *out = nullptr;
        return next_item(filter.script.result("enum_pins.next"), pins, position,
                         [&](FakePin* p) { p->give(Iid::pin, reinterpret_cast<void**>(out)); });
    }
    HRESULT reset() override {
        log("reset");
        // A reset also picks up pins that appeared since the enumerator was made.
        pins = filter.pins;
        position = 0;
        return filter.script.result("enum_pins.reset");
    }

  private:
    FakeFilter& filter;
    std::vector<FakePin*> pins;
    std::size_t position = 0;
};
}  // namespace

// ---- Pins and filters ------------------------------------------------------------------------

FakePin::FakePin(FakeLedger& ledger_, FakeFilter& owner_, std::string name_,
                 PinDirection direction_, PinCategory category_,
                 std::vector<media::MediaType> types_)
    : FakeUnknown(ledger_, owner_.label() + ":" + name_),
      owner(owner_),
      name(std::move(name_)),
      direction(direction_),
      category(category_),
      types(std::move(types_)) {}

HRESULT FakePin::connected_to(media::Pin** out) {
    log("connected_to");
    *out = nullptr;
    const HRESULT hr = script.result("connected_to");
    if (failed(hr)) {
        return hr;
    }
    if (!peer) {
        return VFW_E_NOT_FOUND;  // "not connected"
    }
    peer->give(Iid::pin, reinterpret_cast<void**>(out));
    return hr;
}

HRESULT FakePin::query_pin_info(media::PinInfo& info) {
    log("query_pin_info");
    const HRESULT hr = script.result("query_pin_info");
    if (failed(hr)) {
        return hr;
    }
    owner.give(Iid::base_filter, reinterpret_cast<void**>(&info.filter));
    info.direction = direction;
    info.name = name;
    return hr;
}

HRESULT FakePin::query_direction(PinDirection& out) {
    return answer("query_direction", "query_direction", &out, direction);
}

HRESULT FakePin::enum_media_types(media::EnumMediaTypes** out) {
    log("enum_media_types");
    *out = nullptr;
    const HRESULT hr = script.result("enum_media_types");
    if (failed(hr)) {
        return hr;
    }
    ledger.make<FakeEnumMediaTypes>(*this).give(Iid::enum_media_types,
                                                reinterpret_cast<void**>(out));
    return hr;
}

MajorType FakePin::major() const {
    return types.empty() ? MajorType::none : major_of(types.front().major);
}

bool FakePin::offers(const media::Guid& subtype) const {
    return std::any_of(types.begin(), types.end(),
                       [&](const media::MediaType& t) { return t.subtype == subtype; });
}

FakeFilter::FakeFilter(FakeLedger& ledger_, std::string name)
    : FakeObject(ledger_, std::move(name)) {}

void* FakeFilter::interface_for(Iid iid) {
    if (iid == Iid::unknown || iid == Iid::base_filter) {
        return static_cast<media::BaseFilter*>(this);
    }
    if (iid == Iid::specify_property_pages && has_property_pages) {
        return static_cast<media::SpecifyPropertyPages*>(this);
    }
    return nullptr;
}

HRESULT FakeFilter::enum_pins(media::EnumPins** out) {
    log("enum_pins");
    *out = nullptr;
    const HRESULT hr = script.result("enum_pins");
    if (failed(hr)) {
        return hr;
    }
    ledger.make<FakeEnumPins>(*this).give(Iid::enum_pins, reinterpret_cast<void**>(out));
    return hr;
}

HRESULT FakeFilter::get_pages(std::vector<media::Guid>& out) {
    return answer("get_pages", "get_pages", &out, pages);
}

FakePin& FakeFilter::add_pin(const std::string& name, PinDirection direction, PinCategory category,
                             std::vector<media::MediaType> types) {
    FakePin& made = ledger.make<FakePin>(*this, name, direction, category, std::move(types));
    pins.push_back(&made);
    return made;
}

FakePin* FakeFilter::pin(const std::string& name) const {
    for (FakePin* p : pins) {
        if (p->name == name) {
            return p;
        }
    }
    return nullptr;
}

FakePin* FakeFilter::output(PinCategory category, MajorType type, bool free_only) const {
    for (FakePin* p : pins) {
        if (p->direction != PinDirection::output || (free_only && p->connected())) {
            continue;
        }
        if (category != PinCategory::none && p->category != category) {
            continue;
        }
        if (type != MajorType::none && p->major() != type) {
            continue;
        }
        return p;
    }
    return nullptr;
}

FakePin* FakeFilter::free_input() {
    for (FakePin* p : pins) {
        if (p->direction == PinDirection::input && !p->connected()) {
            return p;
        }
    }
    return nullptr;
}

FakePin* FakeFilter::free_output() const {
    return output(PinCategory::none, MajorType::none, true);
}

FakeMux::FakeMux(FakeLedger& ledger_, std::string name) : FakeFilter(ledger_, std::move(name)) {
    add_pin("AVI Out", PinDirection::output, PinCategory::none,
            {{media::fourcc_subtype('a', 'v', 'i', ' '),
              media::fourcc_subtype('a', 'v', 'i', ' '),
              {}}});
    add_pin("Input 01", PinDirection::input);
}

void* FakeMux::interface_for(Iid iid) {
    if (iid == Iid::config_interleaving) {
        return static_cast<media::ConfigInterleaving*>(this);
    }
    return FakeFilter::interface_for(iid);
}

FakePin* FakeMux::free_input() {
    if (FakePin* free = FakeFilter::free_input()) {
        return free;
    }
    char name[16];
    std::snprintf(name, sizeof name, "Input %02zu", pins.size());
    return &add_pin(name, PinDirection::input);
}

HRESULT FakeMux::put_mode(int mode) {
    log("put_mode(" + std::to_string(mode) + ")");
    modes.push_back(mode);
    return script.result("put_mode");
}

FakeFileWriter::FakeFileWriter(FakeLedger& ledger_, std::string path_)
    : FakeFilter(ledger_, "File Writer"), path(std::move(path_)) {
    add_pin("in", PinDirection::input);
}

void* FakeFileWriter::interface_for(Iid iid) {
    if (iid == Iid::file_sink) {
        return static_cast<media::FileSink*>(this);
    }
    return FakeFilter::interface_for(iid);
}

HRESULT FakeFileWriter::get_cur_file(std::string& out) {
    return answer("get_cur_file", "get_cur_file", &out, path);
}

FakeDvFilter::FakeDvFilter(FakeLedger& ledger_, std::string name)
    : FakeFilter(ledger_, std::move(name)) {
    add_pin("DV A/V Out", PinDirection::output, PinCategory::capture, {dv_media_type()});
    add_pin("DV A/V In", PinDirection::input, PinCategory::none, {dv_media_type()});
}

void* FakeDvFilter::interface_for(Iid iid) {
    switch (iid) {
        case Iid::ext_device:
            return static_cast<media::ExtDevice*>(this);
        case Iid::ext_transport:
            return static_cast<media::ExtTransport*>(this);
        case Iid::timecode_reader:
            return static_cast<media::TimecodeReader*>(this);
        default:
            return FakeFilter::interface_for(iid);
    }
}

namespace {
// A device's answer for `key`, one of two it knows (v1 for k1, v2 for k2); E_INVALIDARG
// for any other. A scripted failure `hr` comes first.
HRESULT answer_for(HRESULT hr, long key, long* out, long k1, long v1, long k2, long v2) {
    if (succeeded(hr) && key != k1 && key != k2) {
        return E_INVALIDARG;
    }
    if (succeeded(hr)) {
        *out = key == k1 ? v1 : v2;
    }
    return hr;
}
}  // namespace

HRESULT FakeDvFilter::get_capability(long capability, long* value, double* dbl_value) {
    log("get_capability(" + std::to_string(capability) + "," + (dbl_value ? "dbl" : "null") + ")");
    capability_requests.push_back(capability);
    return answer_for(script.result("get_capability"), capability, value,
                      media::ED_DEVCAP_NORMAL_RATE, normal_rate, media::ED_DEVCAP_DEVICE_TYPE,
                      device_type);
}

HRESULT FakeDvFilter::put_mode(long mode) {
    log("put_mode(" + std::to_string(mode) + ")");
    modes.push_back(mode);
    const HRESULT hr = script.result("put_mode");
    if (succeeded(hr) && follow_modes) {
        status_mode = mode;
        playing = mode == media::ED_MODE_PLAY ? media::OATRUE : media::OAFALSE;
    }
    return hr;
}

HRESULT FakeDvFilter::get_status(long item, long* value) {
    log("get_status(" + std::to_string(item) + ")");
    return answer_for(script.result("get_status"), item, value, media::ED_MODE, status_mode,
                      media::ED_MODE_PLAY, playing);
}

HRESULT FakeDvFilter::get_transport_basic_parameters(long param, long* length,
                                                     std::uint8_t* frame) {
    RawCommand command{param, *length, {}};
    if (*length > 0) {
        command.bytes.assign(frame, frame + *length);
    }
    std::string bytes;
    for (std::uint8_t b : command.bytes) {
        char hex[4];
        std::snprintf(hex, sizeof hex, "%s%02X", bytes.empty() ? "" : " ", b);
        bytes += hex;
    }
    log("get_transport_basic_parameters(" + std::to_string(param) + "," + std::to_string(*length) +
        "," + bytes + ")");
    raw_commands.push_back(std::move(command));
    return script.result("get_transport_basic_parameters");
}

HRESULT FakeDvFilter::get_timecode(media::TimecodeSample& sample) {
    log("get_timecode(" + std::to_string(sample.flags) + ")");
    timecode_requests.push_back(sample);
    const bool track_read = sample.flags == media::ED_DEVCAP_ATN_READ;
    if (!track_read && sample.flags != media::ED_DEVCAP_TIMECODE_READ) {
        return E_INVALIDARG;
    }
    const HRESULT hr = script.result(track_read ? "get_timecode.track" : "get_timecode.timecode");
    if (succeeded(hr)) {
        sample.frames = track_read ? track : timecode_bcd;
        if (!track_read) {
            sample.user = user_bits;
        }
    }
    return hr;
}

HRESULT FakeDroppedFrames::get_num_dropped(long* count) {
    return answer("get_num_dropped", "get_num_dropped", count, dropped);
}

HRESULT FakeDroppedFrames::get_num_not_dropped(long* count) {
    return answer("get_num_not_dropped", "get_num_not_dropped", count, not_dropped);
}

HRESULT FakeDroppedFrames::split_at_break() {
    log("split_at_break()");
    return script.result("split_at_break");
}

HRESULT FakeDroppedFrames::get_break_held(long* held) {
    return answer("get_break_held", "get_break_held", held, break_held);
}

FakeFilter& make_video_source(FakeLedger& ledger, const std::string& name) {
    FakeFilter& f = ledger.make<FakeFilter>(name);
    f.add_pin("Capture", PinDirection::output, PinCategory::capture, {video_media_type()});
    f.add_pin("Preview", PinDirection::output, PinCategory::preview, {video_media_type()});
    return f;
}

FakeFilter& make_audio_source(FakeLedger& ledger, const std::string& name) {
    FakeFilter& f = ledger.make<FakeFilter>(name);
    f.add_pin("Capture", PinDirection::output, PinCategory::capture, {audio_media_type()});
    return f;
}

FakeFilter& make_compressor(FakeLedger& ledger, const std::string& name, MajorType type) {
    FakeFilter& f = ledger.make<FakeFilter>(name);
    const media::MediaType t = type == MajorType::audio ? audio_media_type() : video_media_type();
    f.add_pin("Input", PinDirection::input, PinCategory::none, {t});
    f.add_pin("Output", PinDirection::output, PinCategory::none, {t});
    return f;
}

FakeFilter& make_dv_splitter(FakeLedger& ledger, const std::string& name) {
    FakeFilter& f = ledger.make<FakeFilter>(name);
    f.add_pin("Input", PinDirection::input, PinCategory::none, {dv_media_type()});
    f.add_pin("DVVidOut0", PinDirection::output, PinCategory::none,
              {video_media_type(media::MEDIASUBTYPE_dvsd)});
    f.add_pin("AudOut00", PinDirection::output, PinCategory::none, {audio_media_type()});
    return f;
}

// ---- Device catalogue ------------------------------------------------------------------------

namespace {
// A scripted failure wins over the device's own result.
HRESULT first_failure(HRESULT scripted, HRESULT own) {
    return failed(scripted) ? scripted : own;
}

class FakePropertyBag : public FakeUnknown<media::PropertyBag, Iid::property_bag> {
  public:
    FakePropertyBag(FakeLedger& ledger, FakeCatalogue& catalogue, FakeDevice device)
        : FakeUnknown(ledger, "bag:" + device.name), catalogue(catalogue), device(device) {}
    HRESULT read(const std::string& name, std::string& value) override {
        log("read(" + name + ")");
        const HRESULT hr = catalogue.script.result("read");
        if (failed(hr)) {
            return hr;
        }
        if (name != "FriendlyName" || !device.has_friendly_name) {
            return E_INVALIDARG;
        }
        value = device.name;
        return hr;
    }

  private:
    FakeCatalogue& catalogue;
    FakeDevice device;
};

class FakeMoniker : public FakeUnknown<media::Moniker, Iid::moniker> {
  public:
    FakeMoniker(FakeLedger& ledger, FakeCatalogue& catalogue, FakeDevice device)
        : FakeUnknown(ledger, "moniker:" + device.name), catalogue(catalogue), device(device) {}
    HRESULT bind_to_object(Iid iid, void** out) override {
        log("bind_to_object(" + name_of(iid) + ")");
        *out = nullptr;
        const HRESULT hr =
            first_failure(catalogue.script.result("bind_to_object"), device.bind_result);
        if (failed(hr)) {
            return hr;
        }
        return device.filter ? device.filter->give(iid, out) : E_NOINTERFACE;
    }
    HRESULT bind_to_storage(media::PropertyBag** out) override {
        log("bind_to_storage");
        *out = nullptr;
        const HRESULT hr =
            first_failure(catalogue.script.result("bind_to_storage"), device.storage_result);
        if (failed(hr)) {
            return hr;
        }
        ledger.make<FakePropertyBag>(catalogue, device)
            .give(Iid::property_bag, reinterpret_cast<void**>(out));
        return hr;
    }

  private:
    FakeCatalogue& catalogue;
    FakeDevice device;
};

class FakeEnumMoniker : public FakeUnknown<media::EnumMoniker, Iid::enum_moniker> {
  public:
    FakeEnumMoniker(FakeLedger& ledger, FakeCatalogue& catalogue, media::DeviceCategory category)
        : FakeUnknown(ledger, "enum_moniker:" + name_of(category)),
          catalogue(catalogue),
          devices(catalogue[category]) {}
    HRESULT next(media::Moniker** out) override {
        log("next");
        *out = nullptr;
        return next_item(catalogue.script.result("next"), devices, position,
                         [&](const FakeDevice& d) {
                             ledger.make<FakeMoniker>(catalogue, d)
                                 .give(Iid::moniker, reinterpret_cast<void**>(out));
                         });
    }

  private:
    FakeCatalogue& catalogue;
    std::vector<FakeDevice> devices;
    std::size_t position = 0;
};

class FakeDevEnum : public FakeUnknown<media::CreateDevEnum, Iid::create_dev_enum> {
  public:
    FakeDevEnum(FakeLedger& ledger, FakeCatalogue& catalogue)
        : FakeUnknown(ledger, "devenum"), catalogue(catalogue) {}
    HRESULT create_class_enumerator(media::DeviceCategory category, media::EnumMoniker** out,
                                    std::uint32_t flags) override {
        log("create_class_enumerator(" + name_of(category) + "," + std::to_string(flags) + ")");
        *out = nullptr;
        const HRESULT hr = catalogue.script.result("create_class_enumerator");
        if (failed(hr) || hr == S_FALSE || catalogue[category].empty()) {
            return failed(hr) ? hr : S_FALSE;
        }
        ledger.make<FakeEnumMoniker>(catalogue, category)
            .give(Iid::enum_moniker, reinterpret_cast<void**>(out));
        return hr;
    }

  private:
    FakeCatalogue& catalogue;
};
}  // namespace

// ---- Graph ------------------------------------------------------------------------------------

FakeGraph::FakeGraph(FakeLedger& ledger_, std::string label)
    : FakeObject(ledger_, std::move(label)) {}

void* FakeGraph::interface_for(Iid iid) {
    switch (iid) {
        case Iid::unknown:
        case Iid::graph_builder:
            return static_cast<media::GraphBuilder*>(this);
        case Iid::media_control:
            return static_cast<media::MediaControl*>(this);
        case Iid::media_event:
            return static_cast<media::MediaEvent*>(this);
        case Iid::media_seeking:
            return static_cast<media::MediaSeeking*>(this);
        case Iid::video_window:
            return static_cast<media::VideoWindow*>(this);
        default:
            return nullptr;
    }
}

std::string FakeGraph::insert(FakeFilter& filter, const std::string& name) {
    std::string unique = name;
    for (int n = 1; filter_named(unique); ++n) {
        char suffix[16];
        std::snprintf(suffix, sizeof suffix, " %04d", n);
        unique = name + suffix;
    }
    filters.push_back({&filter, unique});
    filter.add_ref_silently();
    log("insert(" + filter.label() + "," + unique + ")");
    return unique;
}

void FakeGraph::connect(FakePin& out, FakePin& in) {
    out.peer = &in;
    in.peer = &out;
    log("connect(" + pin_label(out) + "," + pin_label(in) + ")");
}

bool FakeGraph::contains(const FakeFilter& filter) const {
    return std::any_of(filters.begin(), filters.end(),
                       [&](const Member& m) { return m.filter == &filter; });
}

FakeFilter* FakeGraph::filter_named(const std::string& name) const {
    for (const auto& m : filters) {
        if (m.name == name) {
            return m.filter;
        }
    }
    return nullptr;
}

std::vector<std::string> FakeGraph::filter_names() const {
    std::vector<std::string> names;
    for (const auto& m : filters) {
        names.push_back(m.name);
    }
    return names;
}

HRESULT FakeGraph::add_filter(media::BaseFilter* filter, const std::string& name) {
    FakeFilter* fake = fake_of<FakeFilter>(filter);
    log("add_filter(" + filter_label(fake) + "," + name + ")");
    const HRESULT hr = script.result("add_filter");
    if (failed(hr) || !fake) {
        return failed(hr) ? hr : E_POINTER;
    }
    if (contains(*fake)) {
        return E_INVALIDARG;  // a filter is in a graph once
    }
    const std::string given = insert(*fake, name);
    ledger.calls.pop_back();  // recorded as add_filter above
    return given == name ? hr : VFW_S_DUPLICATE_NAME;
}

HRESULT FakeGraph::remove_filter(media::BaseFilter* filter) {
    FakeFilter* fake = fake_of<FakeFilter>(filter);
    log("remove_filter(" + filter_label(fake) + ")");
    const HRESULT hr = script.result("remove_filter");
    if (failed(hr)) {
        return hr;
    }
    auto it = std::find_if(filters.begin(), filters.end(),
                           [&](const Member& m) { return m.filter == fake; });
    if (it == filters.end()) {
        return VFW_E_NOT_FOUND;
    }
    // The graph breaks whatever links are left, both ends, as a real one does.
    for (FakePin* p : fake->pins) {
        if (p->connected()) {
            removed_while_connected.push_back(pin_label(*p));
            p->peer->peer = nullptr;
            p->peer = nullptr;
        }
    }
    filters.erase(it);
    fake->release_silently();
    return hr;
}

HRESULT FakeGraph::disconnect(media::Pin* pin) {
    FakePin* fake = fake_of<FakePin>(pin);
    log("disconnect(" + (fake ? pin_label(*fake) : std::string("-")) + ")");
    const HRESULT hr = script.result("disconnect");
    if (failed(hr) || !fake) {
        return failed(hr) ? hr : E_POINTER;
    }
    if (!fake->peer) {
        return S_FALSE;
    }
    fake->peer = nullptr;
    return hr;
}

HRESULT FakeGraph::find_filter_by_name(const std::string& name, media::BaseFilter** out) {
    log("find_filter_by_name(" + name + ")");
    *out = nullptr;
    const HRESULT hr = script.result("find_filter_by_name");
    if (failed(hr)) {
        return hr;
    }
    FakeFilter* found = filter_named(name);
    if (!found) {
        return VFW_E_NOT_FOUND;
    }
    found->give(Iid::base_filter, reinterpret_cast<void**>(out));
    return hr;
}

HRESULT FakeGraph::run() {
    ++runs;
    return answer("run", "run", &is_running, true);
}

HRESULT FakeGraph::stop() {
    ++stops;
    return answer("stop", "stop", &is_running, false);
}

HRESULT FakeGraph::set_notify_window(WindowHandle window, unsigned message, LParam instance_data) {
    log("set_notify_window(" + std::string(window ? "window" : "null") + "," +
        std::to_string(message) + "," + std::to_string(instance_data) + ")");
    const HRESULT hr = script.result("set_notify_window");
    if (succeeded(hr)) {
        notify_window = window;
        notify_message = message;
        notify_data = instance_data;
    }
    return hr;
}

void FakeGraph::queue_event(long code, LParam param1, LParam param2) {
    events.push_back({code, param1, param2});
    if (host && notify_window) {
        host->post_message(notify_window, notify_message, 0, notify_data);
    }
}

void FakeGraph::queue_device_lost(FakeFilter& filter) {
    filter.add_ref_silently();  // the event's reference, freed with free_event_params
    queue_event(media::EC_DEVICE_LOST, reinterpret_cast<LParam>(filter.identity()), 0);
}

HRESULT FakeGraph::get_event(long* code, LParam* param1, LParam* param2, long timeout_ms) {
    log("get_event(" + std::to_string(timeout_ms) + ")");
    const HRESULT hr = script.result("get_event");
    if (failed(hr)) {
        return hr;
    }
    if (events.empty()) {
        return E_ABORT;  // nothing arrived within the timeout
    }
    const Event e = events.front();
    events.pop_front();
    *code = e.code;
    *param1 = e.param1;
    *param2 = e.param2;
    return hr;
}

HRESULT FakeGraph::free_event_params(long code, LParam param1, LParam param2) {
    log("free_event_params(" + std::to_string(code) + ")");
    freed_events.push_back({code, param1, param2});
    if (code == media::EC_DEVICE_LOST && param1 != 0) {
        reinterpret_cast<Unknown*>(param1)->release();
    }
    return script.result("free_event_params");
}

HRESULT FakeGraph::get_current_position(std::int64_t* out) {
    return answer("get_current_position", "get_current_position", out, position_100ns);
}

HRESULT FakeGraph::put_owner(WindowHandle window) {
    return answer(std::string("put_owner(") + (window ? "window" : "null") + ")", "put_owner",
                  &owner, window);
}

HRESULT FakeGraph::put_window_style(long value) {
    return answer("put_window_style(" + std::to_string(value) + ")", "put_window_style", &style,
                  value);
}

HRESULT FakeGraph::put_visible(long value) {
    return answer("put_visible(" + std::to_string(value) + ")", "put_visible", &visible, value);
}

HRESULT FakeGraph::set_window_position(long left, long top, long width, long height) {
    return answer("set_window_position(" + std::to_string(left) + "," + std::to_string(top) + "," +
                      std::to_string(width) + "," + std::to_string(height) + ")",
                  "set_window_position", &position, Position{left, top, width, height});
}

void FakeGraph::final_release() {
    // A graph manager going away lets go of its filters and its pending events.
    for (const auto& m : filters) {
        m.filter->release_silently();
    }
    filters.clear();
    for (const auto& e : events) {
        if (e.code == media::EC_DEVICE_LOST && e.param1 != 0) {
            reinterpret_cast<Unknown*>(e.param1)->release();
        }
    }
    events.clear();
    notify_window = nullptr;
}

// ---- Capture graph builder -------------------------------------------------------------------

FakeCaptureBuilder::FakeCaptureBuilder(FakeLedger& ledger_, std::string label)
    : FakeUnknown(ledger_, std::move(label)), dropped(ledger_.make<FakeDroppedFrames>()) {}

void FakeCaptureBuilder::final_release() {
    if (graph) {
        graph->release_silently();
        graph = nullptr;
    }
}

HRESULT FakeCaptureBuilder::set_filtergraph(media::GraphBuilder* g) {
    FakeGraph* fake = fake_of<FakeGraph>(g);
    log("set_filtergraph(" + (fake ? fake->label() : std::string("-")) + ")");
    const HRESULT hr = script.result("set_filtergraph");
    if (failed(hr) || !fake) {
        return failed(hr) ? hr : E_POINTER;
    }
    if (graph) {
        return E_UNEXPECTED;  // a builder is attached once
    }
    graph = fake;
    graph->add_ref_silently();
    return hr;
}

FakeFilter& FakeCaptureBuilder::add_new(FakeFilter& filter) {
    graph->insert(filter, filter.label());
    return filter;
}

HRESULT FakeCaptureBuilder::set_output_file_name(const std::string& path,
                                                 media::BaseFilter** mux_out,
                                                 media::FileSink** sink_out) {
    log("set_output_file_name(" + path + ")");
    *mux_out = nullptr;
    *sink_out = nullptr;
    const HRESULT hr = script.result("set_output_file_name");
    if (failed(hr)) {
        return hr;
    }
    if (!graph) {
        return E_UNEXPECTED;
    }
    output_paths.push_back(path);
    mux = &ledger.make<FakeMux>();
    writer = &ledger.make<FakeFileWriter>(path);
    add_new(*mux);
    add_new(*writer);
    graph->connect(*mux->pin("AVI Out"), *writer->pin("in"));
    mux->give(Iid::base_filter, reinterpret_cast<void**>(mux_out));
    writer->give(Iid::file_sink, reinterpret_cast<void**>(sink_out));
    return hr;
}

FakeFilter& FakeCaptureBuilder::insert_tee(FakePin& capture) {
    FakeFilter& tee = add_new(ledger.make<FakeFilter>("Smart Tee"));
    tee.add_pin("Input", PinDirection::input, PinCategory::none, capture.types);
    tee.add_pin("Capture", PinDirection::output, PinCategory::capture, capture.types);
    tee.add_pin("Preview", PinDirection::output, PinCategory::preview, capture.types);
    graph->connect(capture, *tee.pin("Input"));
    return tee;
}

namespace {
// The tee's free output of that category behind a capture pin, if the pin feeds a tee.
FakePin* tee_output(const FakePin& capture, PinCategory category) {
    if (!capture.peer || capture.peer->owner.label() != "Smart Tee") {
        return nullptr;
    }
    FakePin* out = capture.peer->owner.output(category, MajorType::none, true);
    return out;
}
}  // namespace

FakePin* FakeCaptureBuilder::start_pin(FakeFilter& source, PinCategory category, MajorType type) {
    if (category == PinCategory::none) {
        return source.output(PinCategory::none, type, true);
    }
    if (FakePin* own = source.output(category, type, true)) {
        // A source without a preview pin of its own gets its capture stream split by a
        // tee, so that a preview can be rendered from the same pin later.
        if (category == PinCategory::capture && !source.output(PinCategory::preview, type, false)) {
            return insert_tee(*own).pin("Capture");
        }
        return own;
    }
    if (category == PinCategory::preview && source.output(PinCategory::preview, type, false)) {
        return nullptr;  // its own preview pin is taken
    }
    FakePin* capture = source.output(PinCategory::capture, type, false);
    if (!capture) {
        return nullptr;
    }
    if (!capture->connected()) {
        return insert_tee(*capture).pin(category == PinCategory::preview ? "Preview" : "Capture");
    }
    return tee_output(*capture, category);
}

bool FakeCaptureBuilder::render_default(FakePin& out) {
    // A new filter `name` whose one input `pin` takes `from`'s types, connected to it.
    auto attach = [&](FakePin& from, const char* name, const char* pin) -> FakeFilter& {
        FakeFilter& filter = add_new(ledger.make<FakeFilter>(name));
        graph->connect(from,
                       filter.add_pin(pin, PinDirection::input, PinCategory::none, from.types));
        return filter;
    };
    switch (out.major()) {
        case MajorType::interleaved: {
            FakeFilter& splitter = add_new(make_dv_splitter(ledger));
            graph->connect(out, *splitter.pin("Input"));
            return render_default(*splitter.pin("DVVidOut0")) &&
                   render_default(*splitter.pin("AudOut00"));
        }
        case MajorType::video: {
            FakePin* video = &out;
            if (out.offers(media::MEDIASUBTYPE_dvsd) ||
                out.offers(media::MEDIASUBTYPE_DVSD_upper)) {
                video = &attach(out, "DV Video Decoder", "XForm In")
                             .add_pin("XForm Out", PinDirection::output, PinCategory::none,
                                      {video_media_type(MEDIASUBTYPE_RGB24_fake)});
            }
            attach(*video, "Video Renderer", "Input");
            return true;
        }
        case MajorType::audio:
            attach(out, "Audio Renderer", "Audio Input pin");
            return true;
        case MajorType::none:
            break;
    }
    return false;
}

std::string FakeCaptureBuilder::Request::describe() const {
    return name_of(category) + " " + name_of(type) + " " + filter_label(source) + " -> " +
           filter_label(intermediate) + " -> " + filter_label(sink);
}

std::vector<std::string> FakeCaptureBuilder::described_requests() const {
    std::vector<std::string> described;
    for (const auto& r : requests) {
        described.push_back(r.describe());
    }
    return described;
}

HRESULT FakeCaptureBuilder::render_stream(PinCategory category, MajorType type, Unknown* source,
                                          media::BaseFilter* intermediate,
                                          media::BaseFilter* sink) {
    FakePin* source_pin = fake_of<FakePin>(source);
    FakeFilter* from = source_pin ? &source_pin->owner : fake_of<FakeFilter>(source);
    Request request{
        category, type, from, fake_of<FakeFilter>(intermediate), fake_of<FakeFilter>(sink), S_OK};
    log("render_stream(" + request.describe() + ")");
    HRESULT hr = script.result("render_stream");
    if (succeeded(hr)) {
        const HRESULT connected = connect_request(request, source_pin);
        if (failed(connected)) {
            hr = connected;
        }
    }
    request.result = hr;
    requests.push_back(request);
    return hr;
}

HRESULT FakeCaptureBuilder::connect_request(const Request& request, FakePin* source_pin) {
    if (!graph || !request.source) {
        return E_UNEXPECTED;
    }
    FakePin* out =
        source_pin ? source_pin : start_pin(*request.source, request.category, request.type);
    if (!out || out->connected()) {
        return VFW_E_CANNOT_CONNECT;
    }
    // Connects `from` to the next free input of `to`; false when it has none.
    auto link = [&](FakePin& from, FakeFilter& to) {
        FakePin* in = to.free_input();
        if (in) {
            graph->connect(from, *in);
        }
        return in != nullptr;
    };
    if (request.intermediate &&
        (!link(*out, *request.intermediate) || !(out = request.intermediate->free_output()))) {
        return VFW_E_CANNOT_CONNECT;
    }
    if (request.sink) {
        return link(*out, *request.sink) ? S_OK : VFW_E_CANNOT_CONNECT;
    }
    return render_default(*out) ? S_OK : VFW_E_CANNOT_CONNECT;
}

HRESULT FakeCaptureBuilder::find_interface(PinCategory category, MajorType type,
                                           media::BaseFilter* filter, Iid iid, void** out) {
    FakeFilter* fake = fake_of<FakeFilter>(filter);
    log("find_interface(" + name_of(category) + "," + name_of(type) + "," + filter_label(fake) +
        "," + name_of(iid) + ")");
    finds.push_back({category, type, fake, iid});
    *out = nullptr;
    const HRESULT hr = script.result("find_interface");
    if (failed(hr)) {
        return hr;
    }
    if (iid == Iid::dropped_frames) {
        dropped.give(iid, out);
        return hr;
    }
    if (fake && succeeded(fake->give(iid, out))) {
        return hr;
    }
    return E_NOINTERFACE;
}

// ---- Factory -----------------------------------------------------------------------------------

FakeMediaFactory::FakeMediaFactory()
    : graph(ledger.make<FakeGraph>()),
      builder(ledger.make<FakeCaptureBuilder>()),
      dv_camera(ledger.make<FakeDvFilter>("DV Camcorder")),
      webcam(make_video_source(ledger, "USB Video Device")),
      microphone(make_audio_source(ledger, "Microphone")),
      line_in(make_audio_source(ledger, "Line In")) {
    using media::DeviceCategory;
    catalogue[DeviceCategory::video_input] = {{"DV Camcorder", &dv_camera},
                                              {"USB Video Device", &webcam}};
    catalogue[DeviceCategory::audio_input] = {{"Microphone", &microphone}, {"Line In", &line_in}};
    for (const char* name : {"MJPEG Compressor", "Cinepak Codec", "Indeo Video"}) {
        video_compressors.push_back(&make_compressor(ledger, name, MajorType::video));
        catalogue[DeviceCategory::video_compressor].push_back({name, video_compressors.back()});
    }
    for (const char* name : {"IMA ADPCM", "MPEG Layer-3"}) {
        audio_compressors.push_back(&make_compressor(ledger, name, MajorType::audio));
        catalogue[DeviceCategory::audio_compressor].push_back({name, audio_compressors.back()});
    }
}

HRESULT FakeMediaFactory::create_instance(media::Clsid clsid, Iid iid, void** out) {
    ledger.calls.push_back("factory.create_instance(" + name_of(clsid) + "," + name_of(iid) + ")");
    *out = nullptr;
    const HRESULT hr = script.result("create_instance." + name_of(clsid));
    if (failed(hr)) {
        return hr;
    }
    FakeObject* made = nullptr;
    switch (clsid) {
        case media::Clsid::system_device_enum:
            made = &ledger.make<FakeDevEnum>(catalogue);
            break;
        case media::Clsid::filter_graph:
            made = &graph;
            break;
        case media::Clsid::capture_graph_builder:
            made = &builder;
            break;
        case media::Clsid::dv_splitter:
            splitters.push_back(&make_dv_splitter(ledger));
            made = splitters.back();
            break;
    }
    const HRESULT given = made->give(iid, out);
    return failed(given) ? given : hr;
}

HRESULT FakeMediaFactory::create_property_frame(WindowHandle owner, const std::string& caption,
                                                Unknown* object,
                                                const std::vector<media::Guid>& pages) {
    FakeObject* fake = object ? dynamic_cast<FakeObject*>(object) : nullptr;
    ledger.calls.push_back("factory.create_property_frame(" + caption + "," +
                           (fake ? fake->label() : std::string("-")) + "," +
                           std::to_string(pages.size()) + ")");
    frames.push_back({owner, caption, object, pages});
    return script.result("create_property_frame");
}
