#include "platform/win/deck_media_types.h"

#include <cstring>
#include <vector>

#include "platform/win/filter_base.h"

namespace kc::win {
namespace {

// The 4 data bytes of the first pack of kind `pack` in the blocks of `section`, the first
// data byte lowest, as DVINFO holds them; all ones (DV's "no information") when the frame
// has none. `second_half`: look in the second half of the sequences (the second audio
// channel pair).
DWORD pack_word(std::span<const std::uint8_t> frame, deck::DvSystem system,
                deck::DifSection section, std::uint8_t pack, bool second_half) {
    const int sequences = deck::sequences_per_frame(system);
    const int first = second_half ? sequences / 2 : 0;
    for (int seq = first; seq < first + sequences / 2; ++seq) {
        for (std::size_t block = 0; block < deck::dif_blocks_per_sequence; ++block) {
            const std::size_t at = seq * deck::dif_sequence_bytes + block * deck::dif_block_bytes;
            if (at + deck::dif_block_bytes > frame.size() ||
                frame[at] >> 5 != static_cast<int>(section)) {
                continue;
            }
            // VAUX blocks carry fifteen packs after the ID, audio blocks one.
            const int packs = section == deck::DifSection::vaux ? 15 : 1;
            for (int p = 0; p < packs; ++p) {
                const std::size_t pc = at + 3 + 5 * static_cast<std::size_t>(p);
                if (frame[pc] == pack) {
                    return frame[pc + 1] | (frame[pc + 2] << 8) | (frame[pc + 3] << 16) |
                           (static_cast<DWORD>(frame[pc + 4]) << 24);
                }
            }
        }
    }
    return 0xFFFFFFFFu;
}

// The DVINFO of a tape: the source and control packs of its first frame. The 50/60 flag
// of the video source pack always tells the tape's system, also where the frame has no
// pack, since that is what a reader of the format block goes by.
DVINFO dv_info(const deck::TapeImage& tape) {
    DVINFO info{};
    std::vector<std::uint8_t> frame(tape.frame_bytes(), 0xFF);
    if (tape.frame_count() > 0) {
        (void)tape.read_frame(0, frame);
    }
    const deck::DvSystem system = tape.system();
    using deck::DifSection;
    info.dwDVAAuxSrc = pack_word(frame, system, DifSection::audio, 0x50, false);
    info.dwDVAAuxCtl = pack_word(frame, system, DifSection::audio, 0x51, false);
    info.dwDVAAuxSrc1 = pack_word(frame, system, DifSection::audio, 0x50, true);
    info.dwDVAAuxCtl1 = pack_word(frame, system, DifSection::audio, 0x51, true);
    info.dwDVVAuxSrc = pack_word(frame, system, DifSection::vaux, 0x60, false);
    info.dwDVVAuxCtl = pack_word(frame, system, DifSection::vaux, 0x61, false);
    constexpr DWORD fifty = 1u << 21;  // bit 5 of the third data byte
    info.dwDVVAuxSrc =
        system == deck::DvSystem::pal_625_50 ? info.dwDVVAuxSrc | fifty : info.dwDVVAuxSrc & ~fifty;
    return info;
}

}  // namespace

IEnumMediaTypes* make_media_types(const DeckFormats& formats, deck::DvSystem system, int first) {
    // The enumerator keeps copies of its own, format blocks included.
    DeckFormats shown = formats;
    return new TypeEnum(
        {deck_media_type(system, shown, first), deck_media_type(system, shown, 1 - first)}, 0);
}

DeckFormats deck_formats(const deck::TapeImage& tape) {
    DeckFormats formats;
    formats.dv = dv_info(tape);
    const deck::DvSystem system = tape.system();
    const deck::FrameRate rate = deck::frame_rate(system);
    VIDEOINFOHEADER& video = formats.video;
    video.AvgTimePerFrame = units_per_second * rate.den / rate.num;
    video.dwBitRate = static_cast<DWORD>(deck::frame_bytes(system) * 8 * rate.num / rate.den);
    BITMAPINFOHEADER& picture = video.bmiHeader;
    picture.biSize = sizeof(BITMAPINFOHEADER);
    picture.biWidth = 720;
    picture.biHeight = system == deck::DvSystem::pal_625_50 ? 576 : 480;
    picture.biPlanes = 1;
    picture.biBitCount = 24;
    picture.biCompression = MEDIASUBTYPE_dvsd.Data1;
    picture.biSizeImage = static_cast<DWORD>(deck::frame_bytes(system));
    return formats;
}

AM_MEDIA_TYPE deck_media_type(deck::DvSystem system, DeckFormats& formats, int index) {
    AM_MEDIA_TYPE type{};
    type.subtype = MEDIASUBTYPE_dvsd;
    type.bFixedSizeSamples = TRUE;
    type.bTemporalCompression = FALSE;
    type.lSampleSize = static_cast<ULONG>(deck::frame_bytes(system));
    if (index == 0) {
        type.majortype = MEDIATYPE_Interleaved;
        type.formattype = FORMAT_DvInfo;
        type.cbFormat = sizeof(DVINFO);
        type.pbFormat = reinterpret_cast<BYTE*>(&formats.dv);
    } else {
        type.majortype = MEDIATYPE_Video;
        type.formattype = FORMAT_VideoInfo;
        type.cbFormat = sizeof(VIDEOINFOHEADER);
        type.pbFormat = reinterpret_cast<BYTE*>(&formats.video);
    }
    return type;
}

}  // namespace kc::win
