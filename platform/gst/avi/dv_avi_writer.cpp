#include "platform/gst/avi/dv_avi_writer.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

namespace kc::avi {

namespace {

constexpr std::uint32_t fourcc(const char (&s)[5]) {
    return static_cast<std::uint32_t>(static_cast<std::uint8_t>(s[0])) |
           (static_cast<std::uint32_t>(static_cast<std::uint8_t>(s[1])) << 8) |
           (static_cast<std::uint32_t>(static_cast<std::uint8_t>(s[2])) << 16) |
           (static_cast<std::uint32_t>(static_cast<std::uint8_t>(s[3])) << 24);
}

constexpr std::uint32_t avif_hasindex = 0x10;
constexpr std::uint32_t avif_isinterleaved = 0x100;
constexpr std::uint32_t aviif_keyframe = 0x10;
constexpr std::uint8_t avi_index_of_indexes = 0;
constexpr std::uint8_t avi_index_of_chunks = 1;

constexpr std::uint32_t video_chunk = fourcc("00dc");
constexpr std::uint32_t audio_chunk = fourcc("01wb");

constexpr std::size_t avih_bytes = 56;
constexpr std::size_t strh_bytes = 56;
constexpr std::size_t dvinfo_bytes = 32;
constexpr std::size_t bitmapinfoheader_bytes = 40;
constexpr std::size_t waveformatex_bytes = 18;
constexpr std::size_t dmlh_bytes = 248;
// An 'indx' or 'ix##' payload starts with 24 bytes of fields before its entries.
constexpr std::size_t index_fields_bytes = 24;
constexpr std::size_t super_entry_bytes = 16;
constexpr std::size_t std_entry_bytes = 8;
constexpr std::size_t idx1_entry_bytes = 16;
// 'RIFF' size 'AVIX' 'LIST' size 'movi' opening every part after the first.
constexpr std::size_t part_header_bytes = 24;
// Audio that may wait for the first video frame: a few seconds of any DV audio.
constexpr std::uint64_t max_pending_audio_bytes = 4 * 1024 * 1024;

void put16(std::vector<std::uint8_t>& b, std::size_t at, std::uint16_t v) {
    b[at] = static_cast<std::uint8_t>(v);
    b[at + 1] = static_cast<std::uint8_t>(v >> 8);
}
void put32(std::vector<std::uint8_t>& b, std::size_t at, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) {
        b[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
    }
}
void put64(std::vector<std::uint8_t>& b, std::size_t at, std::uint64_t v) {
    for (int i = 0; i < 8; ++i) {
        b[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
    }
}

// Appends little-endian fields to a byte vector.
class Builder {
  public:
    explicit Builder(std::vector<std::uint8_t>& bytes) : b_(bytes) {}
    std::size_t pos() const { return b_.size(); }
    void u8(std::uint8_t v) { b_.push_back(v); }
    void u16(std::uint16_t v) {
        b_.resize(b_.size() + 2);
        put16(b_, b_.size() - 2, v);
    }
    void u32(std::uint32_t v) {
        b_.resize(b_.size() + 4);
        put32(b_, b_.size() - 4, v);
    }
    void u64(std::uint64_t v) {
        b_.resize(b_.size() + 8);
        put64(b_, b_.size() - 8, v);
    }
    void zeros(std::size_t n) { b_.resize(b_.size() + n); }
    // A chunk header; returns the offset of its payload.
    std::size_t chunk(std::uint32_t id, std::uint32_t size) {
        u32(id);
        u32(size);
        return pos();
    }
    // A LIST header with its size to be filled by end_list; returns the size's offset.
    std::size_t list(std::uint32_t type) {
        u32(fourcc("LIST"));
        const std::size_t at = pos();
        u32(0);
        u32(type);
        return at;
    }
    void end_list(std::size_t size_at) {
        put32(b_, size_at, static_cast<std::uint32_t>(pos() - size_at - 4));
    }

  private:
    std::vector<std::uint8_t>& b_;
};

class AviErrorCategory final : public std::error_category {
  public:
    const char* name() const noexcept override { return "avi"; }
    std::string message(int value) const override {
        switch (static_cast<AviError>(value)) {
            case AviError::not_a_dv_frame:
                return "not a complete DV frame";
            case AviError::dv_system_changed:
                return "the DV system (525-60 / 625-50) changed within the capture";
            case AviError::no_audio_stream:
                return "the file has no audio stream";
            case AviError::audio_format_changed:
                return "the audio format changed within the capture";
            case AviError::audio_not_whole_samples:
                return "audio buffer is not a whole number of samples";
            case AviError::audio_without_video:
                return "audio arrived without video";
            case AviError::too_many_parts:
                return "the file has reached its largest size";
            case AviError::chunk_too_large:
                return "a buffer is too large for an AVI chunk";
            case AviError::closed:
                return "the file is closed";
        }
        return "unknown AVI writer error";
    }
};

}  // namespace

const std::error_category& avi_error_category() {
    static const AviErrorCategory category;
    return category;
}

std::error_code make_error_code(AviError e) {
    return {static_cast<int>(e), avi_error_category()};
}

DvAviWriter::DvAviWriter(std::unique_ptr<AviOutput> output, AviWriterOptions options)
    : output_(std::move(output)), options_(options) {
    // Standard index offsets are 32-bit from the part's base.
    options_.max_riff_bytes = std::min<std::uint64_t>(options_.max_riff_bytes, 0xFFFFFFFFu);
    options_.refresh_every_chunks = std::max<std::uint32_t>(options_.refresh_every_chunks, 1);
    options_.super_index_entries = std::max<std::uint32_t>(options_.super_index_entries, 1);
}

DvAviWriter::~DvAviWriter() {
    if (!closed_) {
        (void)close();
    }
}

bool DvAviWriter::has_audio_stream() const {
    return options_.layout == AviLayout::type2_separate && options_.with_audio;
}

PcmFormat DvAviWriter::current_audio_format() const {
    if (audio_format_) {
        return *audio_format_;
    }
    if (info_ && info_->audio) {
        return *info_->audio;
    }
    return PcmFormat{};
}

std::error_code DvAviWriter::fail(std::error_code error) {
    if (!error_) {
        error_ = error;
    }
    return error;
}

void DvAviWriter::build_header() {
    header_.clear();
    Builder b(header_);
    b.u32(fourcc("RIFF"));
    b.u32(0);
    b.u32(fourcc("AVI "));
    const std::size_t hdrl = b.list(fourcc("hdrl"));
    avih_ = b.chunk(fourcc("avih"), avih_bytes);
    b.zeros(avih_bytes);

    const std::size_t index_bytes =
        index_fields_bytes + super_entry_bytes * options_.super_index_entries;
    const bool type1 = options_.layout == AviLayout::type1_interleaved;

    const std::size_t video_strl = b.list(fourcc("strl"));
    video_fields_.strh = b.chunk(fourcc("strh"), strh_bytes);
    b.zeros(strh_bytes);
    const std::size_t video_strf_bytes =
        type1 ? dvinfo_bytes : bitmapinfoheader_bytes + dvinfo_bytes;
    video_fields_.strf = b.chunk(fourcc("strf"), static_cast<std::uint32_t>(video_strf_bytes));
    b.zeros(video_strf_bytes);
    video_fields_.indx = b.chunk(fourcc("indx"), static_cast<std::uint32_t>(index_bytes));
    b.zeros(index_bytes);
    b.end_list(video_strl);

    if (has_audio_stream()) {
        const std::size_t audio_strl = b.list(fourcc("strl"));
        audio_fields_.strh = b.chunk(fourcc("strh"), strh_bytes);
        b.zeros(strh_bytes);
        audio_fields_.strf = b.chunk(fourcc("strf"), waveformatex_bytes);
        b.zeros(waveformatex_bytes);
        audio_fields_.indx = b.chunk(fourcc("indx"), static_cast<std::uint32_t>(index_bytes));
        b.zeros(index_bytes);
        b.end_list(audio_strl);
    }

    const std::size_t odml = b.list(fourcc("odml"));
    dmlh_ = b.chunk(fourcc("dmlh"), dmlh_bytes);
    b.zeros(dmlh_bytes);
    b.end_list(odml);
    b.end_list(hdrl);

    // The first part's movi LIST header closes the header image.
    b.list(fourcc("movi"));
}

void DvAviWriter::fill_header() {
    const DvFrameInfo& info = *info_;
    const bool type1 = options_.layout == AviLayout::type1_interleaved;
    const PcmFormat audio = current_audio_format();
    const Part& first = parts_.front();
    const std::uint64_t first_riff_end = first.finished ? first.riff_end : end_;
    const std::uint64_t first_movi_end = first.finished ? first.movi_end : end_;
    auto& h = header_;

    put32(h, 4, static_cast<std::uint32_t>(first_riff_end - 8));
    put32(h, first.movi_offset + 4,
          static_cast<std::uint32_t>(first_movi_end - first.movi_offset - 8));

    const std::uint32_t video_bytes_per_second =
        static_cast<std::uint32_t>(info.frame_bytes * info.rate / info.scale);
    // avih: the frame period, data rate, flags, the first part's frame count (what
    // readers without OpenDML can reach), streams, buffer size and picture size.
    std::size_t a = avih_;
    put32(h, a, static_cast<std::uint32_t>((1000000ull * info.scale + info.rate / 2) / info.rate));
    put32(h, a + 4, video_bytes_per_second + (has_audio_stream() ? audio.bytes_per_second() : 0));
    put32(h, a + 8, 0);
    put32(h, a + 12, avif_isinterleaved | (has_idx1_ ? avif_hasindex : 0));
    put32(h, a + 16,
          first.finished ? first.video_frames : static_cast<std::uint32_t>(first.video.size()));
    put32(h, a + 20, 0);
    put32(h, a + 24, has_audio_stream() ? 2 : 1);
    put32(h, a + 28, static_cast<std::uint32_t>(info.frame_bytes + 8));
    put32(h, a + 32, info.width);
    put32(h, a + 36, info.height);

    // Video (or interleaved) stream header; dwLength counts every frame of every part.
    std::size_t s = video_fields_.strh;
    put32(h, s, type1 ? fourcc("iavs") : fourcc("vids"));
    put32(h, s + 4, fourcc("dvsd"));
    put32(h, s + 20, info.scale);
    put32(h, s + 24, info.rate);
    put32(h, s + 32, static_cast<std::uint32_t>(video_frames_));
    put32(h, s + 36, static_cast<std::uint32_t>(info.frame_bytes));
    put32(h, s + 40, 0xFFFFFFFFu);
    put16(h, s + 52, static_cast<std::uint16_t>(info.width));
    put16(h, s + 54, static_cast<std::uint16_t>(info.height));

    std::size_t f = video_fields_.strf;
    if (!type1) {
        put32(h, f, bitmapinfoheader_bytes);
        put32(h, f + 4, info.width);
        put32(h, f + 8, info.height);
        put16(h, f + 12, 1);
        put16(h, f + 14, 24);
        put32(h, f + 16, fourcc("dvsd"));
        put32(h, f + 20, static_cast<std::uint32_t>(info.frame_bytes));
        f += bitmapinfoheader_bytes;
    }
    put32(h, f, info.dvinfo.aaux_src);
    put32(h, f + 4, info.dvinfo.aaux_ctl);
    put32(h, f + 8, info.dvinfo.aaux_src1);
    put32(h, f + 12, info.dvinfo.aaux_ctl1);
    put32(h, f + 16, info.dvinfo.vaux_src);
    put32(h, f + 20, info.dvinfo.vaux_ctl);

    auto fill_super = [&](std::size_t at, std::uint32_t chunk_id,
                          const std::vector<SuperEntry>& entries) {
        put16(h, at, 4);
        h[at + 2] = 0;
        h[at + 3] = avi_index_of_indexes;
        put32(h, at + 4, static_cast<std::uint32_t>(entries.size()));
        put32(h, at + 8, chunk_id);
        std::size_t e = at + index_fields_bytes;
        for (const SuperEntry& entry : entries) {
            put64(h, e, entry.offset);
            put32(h, e + 8, entry.size);
            put32(h, e + 12, entry.duration);
            e += super_entry_bytes;
        }
    };
    fill_super(video_fields_.indx, video_chunk, video_super_);

    if (has_audio_stream()) {
        // PCM as a sample stream: one tick per sample frame (scale block_align over the
        // byte rate), dwLength in sample frames.
        s = audio_fields_.strh;
        put32(h, s, fourcc("auds"));
        put32(h, s + 4, 0);
        put32(h, s + 20, audio.block_align());
        put32(h, s + 24, audio.bytes_per_second());
        put32(h, s + 32, static_cast<std::uint32_t>(audio_bytes_ / audio.block_align()));
        put32(h, s + 36, max_audio_chunk_);
        put32(h, s + 40, 0xFFFFFFFFu);
        put32(h, s + 44, audio.block_align());

        f = audio_fields_.strf;
        put16(h, f, 1);  // WAVE_FORMAT_PCM
        put16(h, f + 2, audio.channels);
        put32(h, f + 4, audio.sample_rate);
        put32(h, f + 8, audio.bytes_per_second());
        put16(h, f + 12, audio.block_align());
        put16(h, f + 14, audio.bits_per_sample);
        put16(h, f + 16, 0);
        fill_super(audio_fields_.indx, audio_chunk, audio_super_);
    }

    put32(h, dmlh_, static_cast<std::uint32_t>(video_frames_));
}

std::error_code DvAviWriter::write_header() {
    fill_header();
    if (auto e = output_->write_at(0, header_)) {
        return fail(e);
    }
    const Part& part = parts_.back();
    if (parts_.size() > 1) {
        const std::uint64_t riff_end = part.finished ? part.riff_end : end_;
        const std::uint64_t movi_end = part.finished ? part.movi_end : end_;
        std::vector<std::uint8_t> size(4);
        put32(size, 0, static_cast<std::uint32_t>(riff_end - part.riff_offset - 8));
        if (auto e = output_->write_at(part.riff_offset + 4, size)) {
            return fail(e);
        }
        put32(size, 0, static_cast<std::uint32_t>(movi_end - part.movi_offset - 8));
        if (auto e = output_->write_at(part.movi_offset + 4, size)) {
            return fail(e);
        }
    }
    return {};
}

std::error_code DvAviWriter::start_file(const DvFrameInfo& info) {
    info_ = info;
    build_header();
    Part first;
    first.riff_offset = 0;
    first.movi_offset = header_.size() - 12;
    parts_.push_back(first);
    end_ = header_.size();
    fill_header();
    const Bytes pieces[] = {header_};
    if (auto e = output_->append(pieces)) {
        (void)output_->truncate(0);
        end_ = 0;
        parts_.clear();
        info_.reset();
        return fail(e);
    }
    return flush_pending_audio();
}

std::uint64_t DvAviWriter::finish_bytes(std::size_t video_entries,
                                        std::size_t audio_entries) const {
    std::uint64_t bytes = 0;
    if (video_entries > 0) {
        bytes += 8 + index_fields_bytes + std_entry_bytes * video_entries;
    }
    if (audio_entries > 0) {
        bytes += 8 + index_fields_bytes + std_entry_bytes * audio_entries;
    }
    if (parts_.size() == 1) {
        bytes += 8 + idx1_entry_bytes * (video_entries + audio_entries);
    }
    return bytes;
}

std::error_code DvAviWriter::append_chunk(std::uint32_t id, Bytes data, bool video) {
    const std::uint64_t chunk_bytes = 8 + data.size() + (data.size() & 1);
    if (chunk_bytes + part_header_bytes + finish_bytes(1, 1) + header_.size() >
        options_.max_riff_bytes) {
        return make_error_code(AviError::chunk_too_large);
    }
    {
        const Part& part = parts_.back();
        const std::size_t video_entries = part.video.size() + (video ? 1 : 0);
        const std::size_t audio_entries = part.audio.size() + (video ? 0 : 1);
        const bool has_chunks = !part.video.empty() || !part.audio.empty();
        if (has_chunks &&
            end_ + chunk_bytes + finish_bytes(video_entries, audio_entries) - part.riff_offset >
                options_.max_riff_bytes) {
            if (parts_.size() >= options_.super_index_entries) {
                return fail(make_error_code(AviError::too_many_parts));
            }
            if (auto e = finish_part()) {
                return e;
            }
            if (auto e = start_part()) {
                return e;
            }
        }
    }

    std::vector<std::uint8_t> head(8);
    put32(head, 0, id);
    put32(head, 4, static_cast<std::uint32_t>(data.size()));
    static constexpr std::uint8_t pad = 0;
    const Bytes pieces[] = {head, data, Bytes(&pad, data.size() & 1)};
    if (auto e = output_->append(pieces)) {
        // Leave whole chunks only: cut away whatever part of this one reached the file.
        (void)output_->truncate(end_);
        return fail(e);
    }
    Part& part = parts_.back();
    const IndexEntry entry{end_ + 8, static_cast<std::uint32_t>(data.size())};
    if (parts_.size() == 1) {
        legacy_.push_back({id, end_, entry.size});
    }
    (video ? part.video : part.audio).push_back(entry);
    end_ += chunk_bytes;
    return {};
}

std::error_code DvAviWriter::finish_part() {
    Part& part = parts_.back();
    const std::uint64_t start = end_;
    const std::size_t video_supers = video_super_.size();
    const std::size_t audio_supers = audio_super_.size();
    // On failure nothing of the part's ending stays: neither bytes in the file nor super
    // index entries naming an index that is not there.
    auto undo = [&](std::error_code e) {
        (void)output_->truncate(start);
        end_ = start;
        video_super_.resize(video_supers);
        audio_super_.resize(audio_supers);
        return fail(e);
    };
    // A standard index per stream closes the movi. Offsets count from the movi LIST, so
    // they stay 32-bit however far into the file the part lies.
    auto write_index = [&](std::uint32_t ix_id, std::uint32_t chunk_id,
                           const std::vector<IndexEntry>& entries, std::uint32_t duration,
                           std::vector<SuperEntry>& super) -> std::error_code {
        if (entries.empty()) {
            return {};
        }
        std::vector<std::uint8_t> ix;
        Builder b(ix);
        b.chunk(ix_id,
                static_cast<std::uint32_t>(index_fields_bytes + std_entry_bytes * entries.size()));
        b.u16(2);
        b.u8(0);
        b.u8(avi_index_of_chunks);
        b.u32(static_cast<std::uint32_t>(entries.size()));
        b.u32(chunk_id);
        b.u64(part.movi_offset);
        b.u32(0);
        for (const IndexEntry& entry : entries) {
            b.u32(static_cast<std::uint32_t>(entry.data_offset - part.movi_offset));
            b.u32(entry.size);  // bit 31 clear: every DV frame is a key frame
        }
        const std::uint64_t at = end_;
        if (auto e = append_index(ix)) {
            return e;
        }
        super.push_back({at, static_cast<std::uint32_t>(ix.size()), duration});
        return {};
    };
    if (auto e = write_index(fourcc("ix00"), video_chunk, part.video,
                             static_cast<std::uint32_t>(part.video.size()), video_super_)) {
        return undo(e);
    }
    if (has_audio_stream()) {
        const std::uint32_t samples =
            static_cast<std::uint32_t>(part.audio_bytes / current_audio_format().block_align());
        if (auto e = write_index(fourcc("ix01"), audio_chunk, part.audio, samples, audio_super_)) {
            return undo(e);
        }
    }
    const std::uint64_t movi_end = end_;

    if (parts_.size() == 1) {
        // The legacy index: offsets from the 'movi' fourcc, every chunk a key frame.
        std::vector<std::uint8_t> idx1;
        Builder b(idx1);
        b.chunk(fourcc("idx1"), static_cast<std::uint32_t>(idx1_entry_bytes * legacy_.size()));
        for (const LegacyEntry& entry : legacy_) {
            b.u32(entry.fourcc);
            b.u32(aviif_keyframe);
            b.u32(static_cast<std::uint32_t>(entry.chunk_offset - (part.movi_offset + 8)));
            b.u32(entry.size);
        }
        if (auto e = append_index(idx1)) {
            return undo(e);
        }
        has_idx1_ = true;
        legacy_.clear();
        legacy_.shrink_to_fit();
    }
    part.movi_end = movi_end;
    part.riff_end = end_;
    part.finished = true;
    part.video_frames = static_cast<std::uint32_t>(part.video.size());
    // The entries now live in the file; a long capture need not keep them all.
    part.video = {};
    part.audio = {};
    // A header rewrite cut short (the process killed inside the system call) leaves a
    // prefix of the new bytes; the entry counts come before the entries, so the new
    // entries go down first and a count never names an entry that is not there.
    fill_header();
    const std::pair<const StreamFields*, std::size_t> grown[] = {
        {&video_fields_, video_super_.size() > video_supers ? video_super_.size() : 0},
        {&audio_fields_, audio_super_.size() > audio_supers ? audio_super_.size() : 0}};
    for (const auto& [fields, entries] : grown) {
        if (entries > 0) {
            const std::size_t at =
                fields->indx + index_fields_bytes + super_entry_bytes * (entries - 1);
            if (auto e = output_->write_at(at, Bytes(header_).subspan(at, super_entry_bytes))) {
                return fail(e);
            }
        }
    }
    if (auto e = write_header()) {
        return e;
    }
    if (auto e = output_->sync()) {
        return fail(e);
    }
    return {};
}

std::error_code DvAviWriter::append_index(const std::vector<std::uint8_t>& chunk) {
    // A reader that meets a chunk running past the end of the file searches its bytes for
    // the next chunk header, and index entries are full of them ("00dc", then a size). So
    // an index must never be the cut-off end of a file: it first goes down as a JUNK chunk
    // of zeros, then its entries are written into that, and only then is the chunk named.
    // Cut off at any point, the file ends in zeros, in a whole JUNK chunk that readers
    // skip, or in the finished index.
    const std::uint64_t at = end_;
    const std::size_t payload = chunk.size() - 8;
    std::vector<std::uint8_t> head(chunk.begin(), chunk.begin() + 8);
    put32(head, 0, fourcc("JUNK"));
    const std::vector<std::uint8_t> zeros(payload);
    const Bytes pieces[] = {head, zeros};
    if (auto e = output_->append(pieces)) {
        (void)output_->truncate(at);
        return e;
    }
    end_ += chunk.size();
    if (auto e = output_->write_at(at + 8, Bytes(chunk).subspan(8))) {
        return e;
    }
    return output_->write_at(at, Bytes(chunk).first(4));
}

std::error_code DvAviWriter::start_part() {
    Part part;
    part.riff_offset = end_;
    part.movi_offset = end_ + 12;
    std::vector<std::uint8_t> head;
    Builder b(head);
    b.u32(fourcc("RIFF"));
    b.u32(static_cast<std::uint32_t>(part_header_bytes - 8));
    b.u32(fourcc("AVIX"));
    b.u32(fourcc("LIST"));
    b.u32(4);
    b.u32(fourcc("movi"));
    const Bytes pieces[] = {head};
    if (auto e = output_->append(pieces)) {
        (void)output_->truncate(end_);
        return fail(e);
    }
    end_ += head.size();
    parts_.push_back(std::move(part));
    return {};
}

std::error_code DvAviWriter::set_audio_format(const PcmFormat& format) {
    if (!has_audio_stream()) {
        return make_error_code(AviError::no_audio_stream);
    }
    if (format.channels == 0 || format.sample_rate == 0 || format.bits_per_sample != 16) {
        return make_error_code(std::errc::invalid_argument);
    }
    if (audio_written_) {
        return format == current_audio_format() ? std::error_code{}
                                                : make_error_code(AviError::audio_format_changed);
    }
    audio_format_ = format;
    if (info_ && !error_ && !closed_) {
        return write_header();
    }
    return {};
}

std::error_code DvAviWriter::write_video(Bytes frame) {
    if (closed_) {
        return make_error_code(AviError::closed);
    }
    if (error_) {
        return error_;
    }
    const auto system = dv_system_of(frame);
    if (!system || frame.size() != dv_frame_bytes(*system)) {
        return make_error_code(AviError::not_a_dv_frame);
    }
    if (!info_) {
        const auto info = inspect_dv_frame(frame);
        if (!info) {
            return make_error_code(AviError::not_a_dv_frame);
        }
        if (auto e = start_file(*info)) {
            return e;
        }
    } else if (*system != info_->system) {
        return make_error_code(AviError::dv_system_changed);
    }

    if (auto e = append_chunk(video_chunk, frame, true)) {
        return e;
    }
    ++video_frames_;
    if (auto e = refresh_if_due()) {
        return e;
    }
    if (options_.sync_every_frames > 0 && ++frames_since_sync_ >= options_.sync_every_frames) {
        frames_since_sync_ = 0;
        if (auto e = output_->sync()) {
            return fail(e);
        }
    }
    return {};
}

std::error_code DvAviWriter::write_audio(Bytes samples) {
    if (closed_) {
        return make_error_code(AviError::closed);
    }
    if (error_) {
        return error_;
    }
    if (!has_audio_stream()) {
        return make_error_code(AviError::no_audio_stream);
    }
    if (samples.empty()) {
        return {};
    }
    if (!info_) {
        // dvdemux hands out a frame's audio before its video: hold it for the header.
        if (pending_audio_bytes_ + samples.size() > max_pending_audio_bytes) {
            return make_error_code(AviError::audio_without_video);
        }
        pending_audio_.emplace_back(samples.begin(), samples.end());
        pending_audio_bytes_ += samples.size();
        return {};
    }
    return write_audio_chunk(samples);
}

std::error_code DvAviWriter::write_audio_chunk(Bytes samples) {
    if (samples.size() % current_audio_format().block_align() != 0) {
        return make_error_code(AviError::audio_not_whole_samples);
    }
    if (auto e = append_chunk(audio_chunk, samples, false)) {
        return e;
    }
    audio_written_ = true;
    audio_bytes_ += samples.size();
    parts_.back().audio_bytes += samples.size();
    max_audio_chunk_ = std::max(max_audio_chunk_, static_cast<std::uint32_t>(samples.size()));
    return refresh_if_due();
}

std::error_code DvAviWriter::refresh_if_due() {
    if (++chunks_since_refresh_ < options_.refresh_every_chunks) {
        return {};
    }
    chunks_since_refresh_ = 0;
    return write_header();
}

std::error_code DvAviWriter::flush_pending_audio() {
    auto pending = std::move(pending_audio_);
    pending_audio_.clear();
    pending_audio_bytes_ = 0;
    for (const auto& samples : pending) {
        if (auto e = write_audio_chunk(samples)) {
            return e;
        }
    }
    return {};
}

std::error_code DvAviWriter::close() {
    if (closed_) {
        return error_;
    }
    if (!info_ && !error_) {
        // Nothing arrived: still leave a well-formed, empty file.
        DvFrameInfo info;
        info.system = options_.default_system;
        info.frame_bytes = dv_frame_bytes(info.system);
        if (info.system == DvSystem::ntsc_525_60) {
            info.rate = 30000;
            info.scale = 1001;
            info.height = 480;
        }
        (void)start_file(info);
    }
    // After a failed write the file still holds whole chunks only; index them if the
    // disk lets us, and in any case leave the header describing exactly what is there.
    if (info_ && !parts_.empty()) {
        if (!parts_.back().finished) {
            (void)finish_part();
        }
        (void)write_header();
        if (auto e = output_->sync()) {
            (void)fail(e);
        }
    }
    closed_ = true;
    if (auto e = output_->close()) {
        (void)fail(e);
    }
    return error_;
}

}  // namespace kc::avi
