#include <gtest/gtest.h>

#include <memory>
#include <numeric>

#include "platform/gst/avi/dv_avi_writer.h"
#include "tests/unit/avi/dv_test_frames.h"
#include "tests/unit/avi/memory_output.h"
#include "tests/unit/avi/riff_reader.h"

namespace kc::avi {
namespace {

using namespace test;

constexpr std::uint32_t aviif_keyframe = 0x10;
constexpr std::uint32_t avif_hasindex = 0x10;
constexpr std::uint32_t avif_isinterleaved = 0x100;

// What holds at every moment of a capture, and so in a file cut off at any of them: the
// RIFF parts tile the file exactly, every chunk is whole, the header's counts are the
// chunks on disk, and every index it points to is there and points at those chunks.
void expect_consistent(std::span<const std::uint8_t> b, const DvAviWriter& writer, bool has_audio) {
    const AviHeader a = read_avi(b);
    ASSERT_FALSE(a.top.empty());
    std::uint64_t tiled = 0;
    for (std::size_t i = 0; i < a.top.size(); ++i) {
        const Chunk& riff = a.top[i];
        ASSERT_TRUE(riff.is_list(i == 0 ? "AVI " : "AVIX")) << "part " << i;
        EXPECT_EQ(riff.offset, tiled) << "part " << i;
        EXPECT_TRUE(riff.complete) << "part " << i;
        tiled = riff.offset + 8 + riff.size;
        const auto movis = riff.all("LIST", "movi");
        ASSERT_EQ(movis.size(), 1u) << "part " << i;
        for (const Chunk& c : movis[0]->children) {
            EXPECT_TRUE(c.complete) << c.id << " at " << c.offset;
            EXPECT_TRUE(c.id == "00dc" || c.id == "01wb" || c.id == "ix00" || c.id == "ix01")
                << c.id;
        }
    }
    EXPECT_EQ(tiled, b.size()) << "the parts' sizes must add up to the file";

    const std::size_t frames = movi_chunks(a.top, "00dc").size();
    EXPECT_EQ(frames, writer.video_frames());
    ASSERT_EQ(a.streams.size(), has_audio ? 2u : 1u);
    EXPECT_EQ(a.streams_declared, a.streams.size());
    EXPECT_EQ(a.streams[0].length, frames);
    EXPECT_EQ(a.dmlh_frames, frames);
    EXPECT_EQ(a.first_part_frames, movi_chunks({a.top[0]}, "00dc").size());

    std::uint64_t audio_bytes = 0;
    for (const Chunk* c : movi_chunks(a.top, "01wb")) {
        audio_bytes += c->size;
    }
    EXPECT_EQ(audio_bytes, writer.audio_bytes());
    if (has_audio) {
        EXPECT_EQ(std::uint64_t{a.streams[1].length} * a.streams[1].scale, audio_bytes);
    }

    // Super index entries name complete standard indexes whose entries are the chunks.
    for (std::size_t s = 0; s < a.streams.size(); ++s) {
        const IndexChunk& super = a.streams[s].super;
        EXPECT_EQ(super.longs_per_entry, 4);
        EXPECT_EQ(super.type, 0);
        EXPECT_EQ(super.chunk_id, s == 0 ? "00dc" : "01wb");
        for (const IndexChunk::Entry& e : super.entries) {
            ASSERT_LE(e.offset + e.size, b.size());
            const auto ix_chunks = parse_chunks(b, e.offset, e.offset + e.size);
            ASSERT_EQ(ix_chunks.size(), 1u);
            EXPECT_EQ(ix_chunks[0].id, s == 0 ? "ix00" : "ix01");
            EXPECT_EQ(ix_chunks[0].size + 8, e.size);
            const IndexChunk ix = read_index(b, ix_chunks[0]);
            EXPECT_EQ(ix.longs_per_entry, 2);
            EXPECT_EQ(ix.type, 1);
            EXPECT_EQ(ix.chunk_id, super.chunk_id);
            std::uint64_t duration = 0;
            for (const IndexChunk::Entry& entry : ix.entries) {
                ASSERT_GE(entry.offset, 8u);
                EXPECT_EQ(fourcc_at(b, entry.offset - 8), super.chunk_id);
                EXPECT_EQ(le32(b, entry.offset - 4), entry.size & 0x7FFFFFFF);
                EXPECT_EQ(entry.size & 0x80000000u, 0u) << "DV frames are key frames";
                duration += s == 0 ? 1 : entry.size / a.streams[1].scale;
            }
            EXPECT_EQ(duration, e.duration);
        }
    }
}

struct Harness {
    std::shared_ptr<MemoryFile> file = std::make_shared<MemoryFile>();
    std::unique_ptr<DvAviWriter> writer;

    explicit Harness(AviWriterOptions options)
        : writer(std::make_unique<DvAviWriter>(std::make_unique<MemoryOutput>(file), options)) {}
    std::span<const std::uint8_t> bytes() const { return file->bytes; }
    std::error_code video(std::uint32_t n, DvSystem system = DvSystem::pal_625_50,
                          const TestPacks& packs = {}) {
        return writer->write_video(make_dv_frame(system, n, packs));
    }
    // `samples` stereo 16-bit samples, every byte `fill`.
    std::error_code audio(std::size_t samples, std::uint8_t fill = 0) {
        return writer->write_audio(std::vector<std::uint8_t>(samples * 4, fill));
    }
};

AviWriterOptions type2_options(bool with_audio = true) {
    AviWriterOptions o;
    o.layout = AviLayout::type2_separate;
    o.with_audio = with_audio;
    return o;
}

TEST(AviWriterLayout, Type1IsOneInterleavedStreamWithDvinfo) {
    TestPacks packs;
    packs.vaux_src = 0x12E0FFFF;
    Harness h(AviWriterOptions{});
    for (std::uint32_t i = 0; i < 10; ++i) {
        ASSERT_FALSE(h.video(i, DvSystem::pal_625_50, packs));
    }
    ASSERT_FALSE(h.writer->close());
    EXPECT_TRUE(h.file->closed);
    expect_consistent(h.bytes(), *h.writer, false);

    const AviHeader a = read_avi(h.bytes());
    ASSERT_EQ(a.top.size(), 1u);
    EXPECT_EQ(a.usec_per_frame, 40000u);
    EXPECT_EQ(a.flags, avif_hasindex | avif_isinterleaved);
    EXPECT_EQ(a.first_part_frames, 10u);
    EXPECT_EQ(a.width, 720u);
    EXPECT_EQ(a.height, 576u);
    ASSERT_EQ(a.streams.size(), 1u);
    const StreamHeader& s = a.streams[0];
    EXPECT_EQ(s.type, "iavs");
    EXPECT_EQ(s.handler, "dvsd");
    EXPECT_EQ(s.scale, 1u);
    EXPECT_EQ(s.rate, 25u);
    EXPECT_EQ(s.length, 10u);
    ASSERT_EQ(s.strf.size(), 32u) << "strf is a DVINFO";
    EXPECT_EQ(le32(s.strf, 0), packs.aaux_src);
    EXPECT_EQ(le32(s.strf, 4), packs.aaux_ctl);
    EXPECT_EQ(le32(s.strf, 8), packs.aaux_src1);
    EXPECT_EQ(le32(s.strf, 12), packs.aaux_ctl1);
    EXPECT_EQ(le32(s.strf, 16), packs.vaux_src);
    EXPECT_EQ(le32(s.strf, 20), packs.vaux_ctl);
    EXPECT_EQ(le64(s.strf, 24), 0u);
    ASSERT_EQ(s.super.entries.size(), 1u);
    EXPECT_EQ(s.super.entries[0].duration, 10u);

    // The frames are stored whole and in order.
    const auto frames = movi_chunks(a.top, "00dc");
    ASSERT_EQ(frames.size(), 10u);
    for (std::uint32_t i = 0; i < 10; ++i) {
        const auto expected = make_dv_frame(DvSystem::pal_625_50, i, packs);
        ASSERT_EQ(frames[i]->size, expected.size());
        EXPECT_TRUE(std::equal(expected.begin(), expected.end(),
                               h.bytes().begin() + static_cast<long>(frames[i]->data)))
            << "frame " << i;
    }

    // idx1 follows the movi; offsets count from the 'movi' fourcc.
    const Chunk* movi = a.top[0].child("LIST", "movi");
    const Chunk* idx1 = a.top[0].child("idx1");
    ASSERT_TRUE(movi && idx1);
    EXPECT_GT(idx1->offset, movi->offset);
    ASSERT_EQ(idx1->size, 16u * 10);
    for (std::uint32_t i = 0; i < 10; ++i) {
        const std::uint64_t e = idx1->data + 16 * i;
        EXPECT_EQ(fourcc_at(h.bytes(), e), "00dc");
        EXPECT_EQ(le32(h.bytes(), e + 4), aviif_keyframe);
        EXPECT_EQ(movi->data + le32(h.bytes(), e + 8), frames[i]->offset);
        EXPECT_EQ(le32(h.bytes(), e + 12), 144000u);
    }
}

TEST(AviWriterLayout, Type2HasDvsdVideoAndPcmAudio) {
    Harness h(type2_options());
    ASSERT_FALSE(h.writer->set_audio_format({2, 48000, 16}));
    for (std::uint32_t i = 0; i < 6; ++i) {
        ASSERT_FALSE(h.video(i, DvSystem::ntsc_525_60));
        ASSERT_FALSE(h.audio(i % 5 == 4 ? 1600 : 1602, static_cast<std::uint8_t>(i)));
    }
    ASSERT_FALSE(h.writer->close());
    expect_consistent(h.bytes(), *h.writer, true);

    const AviHeader a = read_avi(h.bytes());
    EXPECT_EQ(a.usec_per_frame, 33367u);
    EXPECT_EQ(a.height, 480u);
    ASSERT_EQ(a.streams.size(), 2u);
    const StreamHeader& v = a.streams[0];
    EXPECT_EQ(v.type, "vids");
    EXPECT_EQ(v.handler, "dvsd");
    EXPECT_EQ(v.scale, 1001u);
    EXPECT_EQ(v.rate, 30000u);
    ASSERT_EQ(v.strf.size(), 72u) << "BITMAPINFOHEADER followed by DVINFO";
    EXPECT_EQ(le32(v.strf, 0), 40u);
    EXPECT_EQ(le32(v.strf, 4), 720u);
    EXPECT_EQ(le32(v.strf, 8), 480u);
    EXPECT_EQ(fourcc_at(v.strf, 16), "dvsd");
    EXPECT_EQ(le32(v.strf, 20), 120000u);
    EXPECT_EQ(le32(v.strf, 40), TestPacks{}.aaux_src);

    const StreamHeader& s = a.streams[1];
    EXPECT_EQ(s.type, "auds");
    EXPECT_EQ(s.scale, 4u);
    EXPECT_EQ(s.rate, 192000u);
    EXPECT_EQ(s.sample_size, 4u);
    EXPECT_EQ(s.length, 5 * 1602u + 1600u);
    ASSERT_EQ(s.strf.size(), 18u);
    EXPECT_EQ(le16(s.strf, 0), 1) << "WAVE_FORMAT_PCM";
    EXPECT_EQ(le16(s.strf, 2), 2);
    EXPECT_EQ(le32(s.strf, 4), 48000u);
    EXPECT_EQ(le32(s.strf, 8), 192000u);
    EXPECT_EQ(le16(s.strf, 12), 4);
    EXPECT_EQ(le16(s.strf, 14), 16);

    // Chunks alternate in the order they were written, and idx1 lists both streams.
    const Chunk* movi = a.top[0].child("LIST", "movi");
    ASSERT_TRUE(movi);
    std::string order;
    for (const Chunk& c : movi->children) {
        order += c.id + " ";
    }
    EXPECT_EQ(order, "00dc 01wb 00dc 01wb 00dc 01wb 00dc 01wb 00dc 01wb 00dc 01wb ix00 ix01 ");
    const Chunk* idx1 = a.top[0].child("idx1");
    ASSERT_TRUE(idx1);
    EXPECT_EQ(idx1->size, 16u * 12);
    EXPECT_EQ(fourcc_at(h.bytes(), idx1->data + 16), "01wb");
}

TEST(AviWriterLayout, Type2WithoutAudioHasOneStream) {
    Harness h(type2_options(false));
    ASSERT_FALSE(h.video(0));
    EXPECT_EQ(h.audio(1920, 0), AviError::no_audio_stream);
    EXPECT_EQ(h.writer->set_audio_format({2, 48000, 16}), AviError::no_audio_stream);
    ASSERT_FALSE(h.writer->close());
    expect_consistent(h.bytes(), *h.writer, false);
    EXPECT_EQ(read_avi(h.bytes()).streams[0].type, "vids");
}

TEST(AviWriterOpenDml, PartsStayUnderTheLimitAndEveryPartIsIndexed) {
    AviWriterOptions o = type2_options();
    o.max_riff_bytes = 1000000;  // six or so PAL frames with their audio per part
    Harness h(o);
    constexpr std::uint32_t frames = 40;
    for (std::uint32_t i = 0; i < frames; ++i) {
        ASSERT_FALSE(h.audio(1920, 1));
        ASSERT_FALSE(h.video(i));
    }
    ASSERT_FALSE(h.writer->close());
    expect_consistent(h.bytes(), *h.writer, true);

    const AviHeader a = read_avi(h.bytes());
    ASSERT_GT(a.top.size(), 5u);
    EXPECT_EQ(h.writer->riff_parts(), a.top.size());
    for (std::size_t i = 0; i < a.top.size(); ++i) {
        EXPECT_LE(a.top[i].size + 8u, o.max_riff_bytes) << "part " << i;
        // Only the first part has the legacy index.
        EXPECT_EQ(a.top[i].child("idx1") != nullptr, i == 0) << "part " << i;
        const Chunk* movi = a.top[i].child("LIST", "movi");
        ASSERT_TRUE(movi);
        EXPECT_EQ(movi->children.back().id, "ix01") << "part " << i;
    }
    // One super index entry per part per stream; durations add up to the stream lengths.
    for (const StreamHeader& s : a.streams) {
        EXPECT_EQ(s.super.entries.size(), a.top.size());
        const std::uint64_t total = std::accumulate(
            s.super.entries.begin(), s.super.entries.end(), std::uint64_t{0},
            [](std::uint64_t sum, const IndexChunk::Entry& e) { return sum + e.duration; });
        EXPECT_EQ(total, s.length);
    }
    EXPECT_EQ(a.streams[0].length, frames);
    EXPECT_EQ(a.dmlh_frames, frames);
    EXPECT_LT(a.first_part_frames, frames) << "avih counts the first part only";
    // The file was made durable at every part boundary and at the end.
    EXPECT_GE(h.file->syncs, static_cast<int>(a.top.size()));
}

// A capture can be cut off between any two calls: the image after each call must be a
// complete, self-consistent file (the process being killed leaves exactly that image).
TEST(AviWriterCutOff, FileIsCompleteAfterEveryCall) {
    for (const AviLayout layout : {AviLayout::type1_interleaved, AviLayout::type2_separate}) {
        SCOPED_TRACE(layout == AviLayout::type1_interleaved ? "type 1" : "type 2");
        AviWriterOptions o;
        o.layout = layout;
        o.max_riff_bytes = 700000;
        Harness h(o);
        const bool audio = layout == AviLayout::type2_separate;
        for (std::uint32_t i = 0; i < 25; ++i) {
            SCOPED_TRACE("frame " + std::to_string(i));
            if (audio) {
                ASSERT_FALSE(h.audio(1600 + i, 2));
                if (i > 0) {
                    expect_consistent(h.bytes(), *h.writer, audio);
                }
            }
            ASSERT_FALSE(h.video(i, DvSystem::ntsc_525_60));
            expect_consistent(h.bytes(), *h.writer, audio);
        }
        EXPECT_GT(h.writer->riff_parts(), 3u);
        ASSERT_FALSE(h.writer->close());
        expect_consistent(h.bytes(), *h.writer, audio);
    }
}

TEST(AviWriterCutOff, HeaderRefreshIntervalBoundsHowFarCountsLag) {
    AviWriterOptions o;
    o.refresh_every_chunks = 4;
    o.sync_every_frames = 3;
    Harness h(o);
    for (std::uint32_t i = 1; i <= 9; ++i) {
        ASSERT_FALSE(h.video(i));
        const AviHeader a = read_avi(h.bytes());
        // Counts and sizes are rewritten on every 4th frame and lag at most 3 frames
        // behind; a reader still finds the lagging frames by walking on past the RIFF.
        EXPECT_EQ(a.streams[0].length, i / 4 * 4) << i;
        EXPECT_EQ(h.bytes().size() - (a.top[0].size + 8u), (i % 4) * (144000u + 8)) << i;
        EXPECT_EQ(h.file->syncs, static_cast<int>(i / 3)) << i;
    }
    ASSERT_FALSE(h.writer->close());
    expect_consistent(h.bytes(), *h.writer, false);
}

// A full disk at any point of a frame, an index or idx1 leaves whole chunks only, a header
// that describes them, and the error reported to the caller.
TEST(AviWriterCutOff, FullDiskLeavesWholeChunksAndReportsTheError) {
    // Probe where the file ends after each frame to aim the capacity at every kind of write.
    std::vector<std::uint64_t> capacities;
    {
        AviWriterOptions o = type2_options();
        o.max_riff_bytes = 500000;
        Harness h(o);
        for (std::uint32_t i = 0; i < 8; ++i) {
            const std::uint64_t before = h.bytes().size();
            ASSERT_FALSE(h.audio(1920, 3));
            ASSERT_FALSE(h.video(i));
            capacities.push_back(before + 3);              // inside the audio chunk header
            capacities.push_back(h.bytes().size() - 100);  // inside the frame
            capacities.push_back(h.bytes().size() + 10);   // inside whatever comes next
        }
    }
    for (const std::uint64_t capacity : capacities) {
        SCOPED_TRACE("capacity " + std::to_string(capacity));
        AviWriterOptions o = type2_options();
        o.max_riff_bytes = 500000;
        Harness h(o);
        h.file->capacity = capacity;
        std::error_code failure;
        std::uint32_t i = 0;
        for (; i < 8 && !failure; ++i) {
            failure = h.audio(1920, 3);
            if (!failure) {
                failure = h.video(i);
            }
        }
        const std::error_code closed = h.writer->close();
        if (!failure) {
            // The disk filled up with the indexes written at close.
            ASSERT_TRUE(closed);
            failure = closed;
        }
        EXPECT_EQ(failure, std::errc::no_space_on_device);
        EXPECT_EQ(closed, failure) << "close reports the first error";
        EXPECT_EQ(h.writer->error(), failure);
        EXPECT_EQ(h.video(99), AviError::closed);
        EXPECT_TRUE(h.file->closed);
        if (capacity < 16 * 1024) {
            // Not even the header fitted: no file rather than half a header.
            EXPECT_TRUE(h.bytes().empty());
            continue;
        }
        expect_consistent(h.bytes(), *h.writer, true);
    }
}

TEST(AviWriterCutOff, WritesAfterAFailureKeepFailing) {
    Harness h(AviWriterOptions{});
    h.file->capacity = 200000;
    ASSERT_FALSE(h.video(0));
    const std::error_code e = h.video(1);
    EXPECT_EQ(e, std::errc::no_space_on_device);
    h.file->capacity.reset();  // space is freed, but the capture already failed
    EXPECT_EQ(h.video(2), e);
    EXPECT_EQ(h.writer->video_frames(), 1u);
    EXPECT_EQ(h.writer->close(), e);
    expect_consistent(h.bytes(), *h.writer, false);
    // With space again, close still indexed the one frame.
    EXPECT_TRUE(read_avi(h.bytes()).top[0].child("idx1"));
}

TEST(AviWriterInput, RejectsWhatIsNotDvAndKeepsGoing) {
    Harness h(AviWriterOptions{});
    auto frame = make_dv_frame(DvSystem::pal_625_50, 0);
    EXPECT_EQ(h.writer->write_video(std::span(frame).first(1000)), AviError::not_a_dv_frame);
    EXPECT_TRUE(h.bytes().empty()) << "nothing is written before a real frame";
    ASSERT_FALSE(h.writer->write_video(frame));
    EXPECT_EQ(h.video(1, DvSystem::ntsc_525_60), AviError::dv_system_changed);
    EXPECT_EQ(h.audio(1920, 0), AviError::no_audio_stream);
    ASSERT_FALSE(h.video(2));
    EXPECT_FALSE(h.writer->error()) << "bad input is refused, not fatal";
    ASSERT_FALSE(h.writer->close());
    EXPECT_EQ(h.writer->video_frames(), 2u);
    expect_consistent(h.bytes(), *h.writer, false);
}

TEST(AviWriterInput, AudioFormatIsFixedByTheFirstAudioChunk) {
    Harness h(type2_options());
    // Before any frame the format may change freely; the header is written with the last.
    ASSERT_FALSE(h.writer->set_audio_format({2, 32000, 16}));
    ASSERT_FALSE(h.video(0));
    ASSERT_FALSE(h.writer->set_audio_format({4, 32000, 16}));
    EXPECT_EQ(le16(read_avi(h.bytes()).streams[1].strf, 2), 4) << "rewritten in place";
    EXPECT_EQ(h.writer->write_audio(std::vector<std::uint8_t>(12)),
              AviError::audio_not_whole_samples);
    ASSERT_FALSE(h.writer->write_audio(std::vector<std::uint8_t>(1280 * 8)));
    EXPECT_FALSE(h.writer->set_audio_format({4, 32000, 16})) << "the same format again is fine";
    EXPECT_EQ(h.writer->set_audio_format({2, 48000, 16}), AviError::audio_format_changed);
    EXPECT_EQ(h.writer->set_audio_format({2, 48000, 8}), std::errc::invalid_argument);
    ASSERT_FALSE(h.writer->close());
    const AviHeader a = read_avi(h.bytes());
    EXPECT_EQ(a.streams[1].rate, 256000u);
    EXPECT_EQ(a.streams[1].length, 1280u);
}

TEST(AviWriterInput, AudioBeforeTheFirstFrameIsKeptAndFormatComesFromTheFrame) {
    Harness h(type2_options());
    ASSERT_FALSE(h.audio(1920, 7));
    ASSERT_FALSE(h.audio(1920, 8));
    EXPECT_TRUE(h.bytes().empty());
    TestPacks packs;
    packs.aaux_src = 0x88E000D8;  // 44.1 kHz
    ASSERT_FALSE(h.video(0, DvSystem::pal_625_50, packs));
    ASSERT_FALSE(h.writer->close());
    expect_consistent(h.bytes(), *h.writer, true);
    const AviHeader a = read_avi(h.bytes());
    EXPECT_EQ(le32(a.streams[1].strf, 4), 44100u);
    const auto audio = movi_chunks(a.top, "01wb");
    ASSERT_EQ(audio.size(), 2u);
    EXPECT_EQ(h.bytes()[audio[0]->data], 7);
    EXPECT_EQ(h.bytes()[audio[1]->data], 8);
    EXPECT_LT(audio[1]->offset, movi_chunks(a.top, "00dc")[0]->offset);

    // Without any video the held audio is bounded.
    Harness only_audio(type2_options());
    std::error_code e;
    for (int i = 0; i < 1000 && !e; ++i) {
        e = only_audio.audio(1920, 0);
    }
    EXPECT_EQ(e, AviError::audio_without_video);
}

TEST(AviWriterInput, CaptureWithoutFramesClosesToAnEmptyWellFormedFile) {
    for (const DvSystem system : {DvSystem::pal_625_50, DvSystem::ntsc_525_60}) {
        AviWriterOptions o = type2_options();
        o.default_system = system;
        Harness h(o);
        ASSERT_FALSE(h.writer->close());
        EXPECT_FALSE(h.writer->close()) << "closing twice is harmless";
        expect_consistent(h.bytes(), *h.writer, true);
        const AviHeader a = read_avi(h.bytes());
        EXPECT_EQ(a.streams[0].length, 0u);
        EXPECT_EQ(a.height, system == DvSystem::pal_625_50 ? 576u : 480u);
        EXPECT_EQ(h.video(0, system), AviError::closed);
    }
}

TEST(AviWriterInput, FullSuperIndexStopsTheCaptureWithAValidFile) {
    AviWriterOptions o;
    o.max_riff_bytes = 400000;  // two PAL frames per part
    o.super_index_entries = 3;
    Harness h(o);
    std::error_code e;
    std::uint32_t written = 0;
    for (std::uint32_t i = 0; i < 20 && !e; ++i) {
        e = h.video(i);
        written += e ? 0 : 1;
    }
    EXPECT_EQ(e, AviError::too_many_parts);
    EXPECT_EQ(written, 6u);
    EXPECT_EQ(h.writer->close(), e);
    expect_consistent(h.bytes(), *h.writer, false);
    EXPECT_EQ(read_avi(h.bytes()).streams[0].super.entries.size(), 3u);
}

TEST(AviWriterInput, ErrorsHaveReadableMessages) {
    for (int v = static_cast<int>(AviError::not_a_dv_frame);
         v <= static_cast<int>(AviError::closed); ++v) {
        const std::error_code e = make_error_code(static_cast<AviError>(v));
        EXPECT_EQ(std::string(e.category().name()), "avi");
        EXPECT_NE(e.message(), "unknown AVI writer error") << v;
    }
}

}  // namespace
}  // namespace kc::avi
