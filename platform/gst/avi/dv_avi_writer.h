// DvAviWriter: writes DV captures as OpenDML AVI files.
//
// Two layouts, as DV editing software expects them:
//   type 1: one 'iavs' stream, handler 'dvsd', format DVINFO; each chunk '00dc' is a whole
//           DV frame with its audio inside;
//   type 2: a 'vids' stream (handler and compression 'dvsd') with the DV frames as '00dc'
//           chunks, and optionally an 'auds' stream of PCM as '01wb' chunks.
//
// File structure: RIFF 'AVI ' (hdrl with avih, one strl per stream with strh, strf and an
// 'indx' super index, odml/dmlh; movi; the legacy idx1), then RIFF 'AVIX' parts each
// holding one movi. Every part ends its movi with a standard index per stream ('ix00',
// 'ix01') that the super indexes point to. A part is closed before it would pass
// `max_riff_bytes`, so files grow past 1 GiB and 4 GiB while every 32-bit size and
// offset stays in range.
//
// Cut-off safety: the file is kept readable at every moment, so that a capture cut off
// by a lost device, a full disk or a killed process keeps every frame written:
//   - the header is written, complete, before the first chunk;
//   - chunks are appended with single system calls, after which the header's RIFF and
//     movi sizes and its frame counts are rewritten in place (every `refresh_every_chunks`
//     chunks) so that they describe exactly the complete chunks on disk; readers
//     (ffmpeg) take a RIFF that ends before the end of the file as the place where the file
//     was cut, read every complete chunk and skip a partial one;
//   - an index is referenced by the super index only once it is completely written, and
//     idx1 is only flagged in avih once it exists; indexes are laid down as JUNK first, so
//     that a file never ends in a partial index whose entries look like chunk headers;
//   - a failed append is truncated away, so a full disk leaves whole chunks only.
// Nothing is held in user-space buffers: what a call has returned is in the file.
//
// Not thread-safe: one thread (or one lock) at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "platform/gst/avi/avi_output.h"
#include "platform/gst/avi/dv_frame.h"

namespace kc::avi {

enum class AviLayout { type1_interleaved, type2_separate };

// Failures of the writer's own (errno failures come as std::system_category codes).
enum class AviError {
    not_a_dv_frame = 1,       // not a complete SD DV frame
    dv_system_changed,        // a 525-60 frame in a 625-50 file, or the reverse
    no_audio_stream,          // audio given to a file without an 'auds' stream
    audio_format_changed,     // a second, different audio format after audio was written
    audio_not_whole_samples,  // an audio buffer that is not a whole number of samples
    audio_without_video,      // too much audio arrived before the first video frame
    too_many_parts,           // the super index is full
    chunk_too_large,          // a single chunk larger than a RIFF part may be
    closed,                   // written to after close
};
const std::error_category& avi_error_category();
std::error_code make_error_code(AviError e);

struct AviWriterOptions {
    AviLayout layout = AviLayout::type1_interleaved;
    // Type 2 only: whether the file has an 'auds' stream.
    bool with_audio = true;
    // Upper bound of one RIFF part, its 8-byte header included.
    std::uint64_t max_riff_bytes = std::uint64_t{1} << 30;
    // How often (in chunks written) the header's sizes and counts are brought up to date;
    // with 1 the file on disk is an exact, complete AVI after every call.
    std::uint32_t refresh_every_chunks = 1;
    // How often (in video frames) the file is made durable (fdatasync); 0: only when a part
    // is finished and at close.
    std::uint32_t sync_every_frames = 0;
    // Entries reserved in each super index: the number of RIFF parts a file can have.
    std::uint32_t super_index_entries = 256;
    // Used for the header of a file closed before its first frame.
    DvSystem default_system = DvSystem::pal_625_50;
};

class DvAviWriter {
  public:
    DvAviWriter(std::unique_ptr<AviOutput> output, AviWriterOptions options);
    // Closes the file if close() was not called; errors are then lost.
    ~DvAviWriter();
    DvAviWriter(const DvAviWriter&) = delete;
    DvAviWriter& operator=(const DvAviWriter&) = delete;

    // The format of the 'auds' stream. Allowed until the first audio chunk is written;
    // before that it may change (the header is rewritten in place).
    std::error_code set_audio_format(const PcmFormat& format);
    // Writes one complete DV frame. The first frame fixes the system, frame rate, picture
    // size and DVINFO of the file.
    std::error_code write_video(Bytes frame);
    // Writes a buffer of PCM samples (type 2 with audio). Audio that arrives before the
    // first video frame is held until the header can be written.
    std::error_code write_audio(Bytes samples);
    // Finishes the last part (standard indexes, idx1 when still in the first part),
    // brings the header up to date, makes the file durable and closes it. After a write
    // error it finishes whatever can still be finished and reports the first error.
    std::error_code close();

    std::uint64_t video_frames() const { return video_frames_; }
    std::uint64_t audio_bytes() const { return audio_bytes_; }
    std::uint32_t riff_parts() const { return static_cast<std::uint32_t>(parts_.size()); }
    std::uint64_t file_bytes() const { return end_; }
    // The first error met, if any; every later write returns it too.
    std::error_code error() const { return error_; }

  private:
    struct IndexEntry {
        std::uint64_t data_offset;  // absolute offset of the chunk's data
        std::uint32_t size;
    };
    struct LegacyEntry {
        std::uint32_t fourcc;
        std::uint64_t chunk_offset;  // absolute offset of the chunk header
        std::uint32_t size;
    };
    struct Part {
        std::uint64_t riff_offset = 0;
        std::uint64_t movi_offset = 0;  // the movi LIST header
        std::vector<IndexEntry> video;
        std::vector<IndexEntry> audio;
        std::uint64_t audio_bytes = 0;
        bool finished = false;
        std::uint32_t video_frames = 0;  // once finished
        std::uint64_t riff_end = 0;      // once finished
        std::uint64_t movi_end = 0;      // once finished
    };
    struct SuperEntry {
        std::uint64_t offset;
        std::uint32_t size;
        std::uint32_t duration;
    };
    struct StreamFields {
        std::size_t strh = 0;  // offsets in header_ of the strh and indx payloads
        std::size_t strf = 0;
        std::size_t indx = 0;
    };

    std::error_code fail(std::error_code error);
    std::error_code start_file(const DvFrameInfo& info);
    void build_header();
    void fill_header();
    std::error_code write_header();
    std::error_code append_chunk(std::uint32_t fourcc, Bytes data, bool video);
    std::error_code refresh_if_due();
    std::error_code append_index(const std::vector<std::uint8_t>& chunk);
    std::error_code start_part();
    std::error_code finish_part();
    std::error_code flush_pending_audio();
    std::error_code write_audio_chunk(Bytes samples);
    std::uint64_t finish_bytes(std::size_t extra_video, std::size_t extra_audio) const;
    bool has_audio_stream() const;
    PcmFormat current_audio_format() const;

    std::unique_ptr<AviOutput> output_;
    AviWriterOptions options_;
    std::error_code error_;
    bool closed_ = false;

    std::optional<DvFrameInfo> info_;
    std::optional<PcmFormat> audio_format_;
    bool audio_written_ = false;
    std::vector<std::vector<std::uint8_t>> pending_audio_;
    std::uint64_t pending_audio_bytes_ = 0;

    std::vector<std::uint8_t> header_;
    std::size_t avih_ = 0;
    std::size_t dmlh_ = 0;
    StreamFields video_fields_;
    StreamFields audio_fields_;
    bool has_idx1_ = false;

    std::vector<Part> parts_;
    std::vector<LegacyEntry> legacy_;  // idx1 entries of the first part
    std::vector<SuperEntry> video_super_;
    std::vector<SuperEntry> audio_super_;
    std::uint64_t end_ = 0;
    std::uint64_t video_frames_ = 0;
    std::uint64_t audio_bytes_ = 0;
    std::uint32_t max_audio_chunk_ = 0;
    std::uint32_t chunks_since_refresh_ = 0;
    std::uint32_t frames_since_sync_ = 0;
};

}  // namespace kc::avi

template <>
struct std::is_error_code_enum<kc::avi::AviError> : std::true_type {};
