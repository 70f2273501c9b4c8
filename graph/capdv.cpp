#include "graph/capdv.h"

#include "app/errors.h"

using media::PinDirection;

namespace {
// Whether a media type carries DV ("dvsd"); some drivers register the FOURCC in
// capitals, which makes a different subtype identity.
bool is_dv_type(const media::MediaType& type) {
    return type.subtype == media::MEDIASUBTYPE_dvsd ||
           type.subtype == media::MEDIASUBTYPE_DVSD_upper;
}

bool pin_offers_dv(media::Pin* pin) {
    ComPtr<media::EnumMediaTypes> types;
    // A pin that cannot list its types simply offers none.
    pin->enum_media_types(types.out());
    if (!types.valid()) {
        return false;
    }
    for (;;) {
        media::MediaType type;
        std::uint32_t fetched = 0;
        const HRESULT hr = types->next(type, &fetched);
        if (failed(hr) || fetched == 0) {
            return false;
        }
        if (is_dv_type(type)) {
            return true;
        }
    }
}

// The device answers these for its timecode format; any other rate is no DV we know.
constexpr std::uint16_t time_format_pal = media::ED_FORMAT_SMPTE_25;
constexpr std::uint16_t time_format_ntsc = media::ED_FORMAT_SMPTE_30DROP;
}  // namespace

bool is_dv(media::BaseFilter* filter) {
    ComPtr<media::EnumPins> pins;
    if (failed(filter->enum_pins(pins.out())) || !pins.valid()) {
        return false;
    }
    for (;;) {
        ComPtr<media::Pin> pin;
        if (pins->next(pin.out()) != S_OK || !pin.valid()) {
            return false;
        }
        PinDirection direction = PinDirection::input;
        if (failed(pin->query_direction(direction))) {
            return false;
        }
        if (direction == PinDirection::output && pin_offers_dv(pin.get())) {
            return true;
        }
    }
}

// AV/C (tape recorder/player subunit) ABSOLUTE TRACK NUMBER control command:
//   byte 0  0x00  ctype CONTROL
//   byte 1  0x20  subunit type 4 (tape recorder/player) << 3 | subunit id 0
//   byte 2  0x52  opcode ABSOLUTE TRACK NUMBER
//   byte 3  0x20  operand 0
//   bytes 4-6     the track number shifted left one bit (bit 0 stays 0), low byte first;
//                 only 24 bits fit, so tracks of 2^23 and above lose their top bits
//   byte 7  0xFF  operand 4
std::array<std::uint8_t, 8> seek_frame(long track) {
    const auto doubled = static_cast<std::uint32_t>(static_cast<unsigned long>(track) << 1);
    return {0x00,
            0x20,
            0x52,
            0x20,
            static_cast<std::uint8_t>(doubled & 0xFF),
            static_cast<std::uint8_t>((doubled >> 8) & 0xFF),
            static_cast<std::uint8_t>((doubled >> 16) & 0xFF),
            0xFF};
}

CapDvDevice::CapDvDevice() : mode_names{"Unknown", "VCR", "Camera"} {}

void CapDvDevice::attach(media::BaseFilter* filter) {
    // The graph owns the filter; we only borrow it while it is the source.
    _filter = filter;
    CAP_ASSERT(is_dv(_filter));
    throw_if_failed(query_interface(_filter, transport_), ERR_TRANSPORT_IF);
    throw_if_failed(query_interface(_filter, timecode_reader), ERR_TIMECODE_READER_IF);
    throw_if_failed(query_interface(_filter, device), ERR_DEVICE_IF);
    long rate = 0;
    throw_if_failed(device->get_capability(media::ED_DEVCAP_NORMAL_RATE, &rate, nullptr),
                    ERR_DV_CAPABILITY);
    if (rate == media::ED_RATE_25) {
        time_format_ = time_format_pal;
    } else if (rate == media::ED_RATE_2997) {
        time_format_ = time_format_ntsc;
    } else {
        // Not a failing call, just a rate whose timecode we cannot count.
        throw new ComError(S_OK, ERR_TIME_FORMAT);
    }
}

void CapDvDevice::detach() {
    transport_.reset();
    timecode_reader.reset();
    device.reset();
    _filter = nullptr;
}

int CapDvDevice::query_dv_mode() {
    long type = 0;
    throw_if_failed(device->get_capability(media::ED_DEVCAP_DEVICE_TYPE, &type, nullptr),
                    ERR_DV_CAPABILITY);
    if (type == media::ED_DEVTYPE_VCR) {
        return 1;
    }
    if (type == media::ED_DEVTYPE_CAMERA) {
        return 2;
    }
    return 0;
}

std::string CapDvDevice::dv_mode_name(int mode) const {
    if (mode < 0 || mode >= static_cast<int>(mode_names.size())) {
        return mode_names[0];
    }
    return mode_names[static_cast<std::size_t>(mode)];
}

bool CapDvDevice::get_timecode(Timecode& out) {
    media::TimecodeSample sample;
    sample.flags = media::ED_DEVCAP_TIMECODE_READ;
    sample.frames = 0;
    if (failed(timecode_reader->get_timecode(sample))) {
        return false;
    }
    // Packed BCD hh mm ss ff, most significant byte first. The digits are taken as
    // they come: a device that sends a nibble above 9 gets it counted, not refused.
    const std::uint32_t bcd = sample.frames;
    out.hours = decode_bcd(static_cast<std::uint8_t>(bcd >> 24));
    out.minutes = decode_bcd(static_cast<std::uint8_t>(bcd >> 16));
    out.seconds = decode_bcd(static_cast<std::uint8_t>(bcd >> 8));
    out.frames = decode_bcd(static_cast<std::uint8_t>(bcd));
    out.user_flag = (sample.user & 1) != 0;

    // The same sample asks for the absolute track number; a device without one still
    // has a usable timecode.
    sample.flags = media::ED_DEVCAP_ATN_READ;
    sample.frames = 0;
    if (succeeded(timecode_reader->get_timecode(sample))) {
        out.track = static_cast<std::int32_t>(sample.frames);
    } else {
        out.track = -1;
    }
    return true;
}

void CapDvDevice::seek(long track) {
    std::array<std::uint8_t, 8> frame = seek_frame(track);
    long length = static_cast<long>(frame.size());
    throw_if_failed(transport_->get_transport_basic_parameters(media::ED_RAW_EXT_DEV_CMD, &length,
                                                               frame.data()),
                    ERR_DV_SEEK);
}

void CapDvDevice::set_mode(long mode) {
    throw_if_failed(transport_->put_mode(mode), ERR_SET_DV_MODE);
}

void CapDvDevice::play() {
    set_mode(media::ED_MODE_PLAY);
}

void CapDvDevice::stop() {
    set_mode(media::ED_MODE_STOP);
}

long CapDvDevice::transport_mode() {
    long mode = 0;
    // A device that cannot tell reads as mode 0; callers poll it again shortly.
    transport_->get_status(media::ED_MODE, &mode);
    return mode;
}

media::ExtTransport* CapDvDevice::transport() {
    return transport_.get();
}
