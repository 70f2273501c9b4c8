// Shared pieces of the GStreamer integration tests: a private temporary folder per test,
// GStreamer started once with our elements registered, DV test tapes made by GStreamer's
// own encoder and DV muxer, pipelines run to their end, and ffprobe/ffmpeg read-backs.
#pragma once

#include <gst/gst.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/gst/avi/dv_frame.h"

namespace kc::gst::test {

// A fresh folder under the system's temporary folder, removed with its contents unless
// KC_KEEP_TEST_FILES is set (then its path is printed for a look at the files).
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

  private:
    std::filesystem::path path_;
};

// gst_init and the registration of kestrelavisink, once per process.
void init_gstreamer();

bool has_element(const char* factory);

// A DV tape of `frames` frames with a moving test picture and a tone embedded as DV audio
// (48 kHz stereo), written by avenc_dvvideo and avmux_dv.
bool make_dv_tape(const std::filesystem::path& path, avi::DvSystem system, int frames);

struct RunResult {
    bool eos = false;
    std::string error;  // the first error message on the bus, if any
    std::string error_source;
    GQuark error_domain = 0;
    int error_code = 0;
    guint64 frames = 0;  // the "frames" property of the element named "avisink", if any
};

// Runs a gst-launch style description until EOS, an error or `timeout_s`, then stops it
// (which finishes any file being written).
RunResult run_pipeline(const std::string& description, int timeout_s = 120);

// Runs a program and returns its standard output; `status` gets its exit status.
std::string run_program(const std::vector<std::string>& argv, int* status = nullptr);

// ffprobe's view of a file as flat key=value pairs ("streams.stream.0.codec_name", ...).
std::map<std::string, std::string> ffprobe(const std::filesystem::path& file);
// A number ffprobe printed; NaN for anything else ("N/A", a missing key), so that a
// comparison fails and shows the value instead of throwing.
double number(const std::string& text);
// Packets ffprobe reads to the end of the file for one stream ("v:0", "a:0"); -1 if it fails.
long count_packets(const std::filesystem::path& file, const std::string& stream);
// Video frames ffmpeg decodes from the whole file (-f null); -1 if it fails.
long decode_video_frames(const std::filesystem::path& file);

// Whole '00dc' chunks found by walking the file's chunks in order, ignoring the sizes
// the RIFF and LIST headers declare (as a reader does that meets a cut-off file).
long count_whole_video_chunks(const std::filesystem::path& file);

std::vector<std::uint8_t> read_file(const std::filesystem::path& file);
void write_file(const std::filesystem::path& file, const std::vector<std::uint8_t>& bytes);

}  // namespace kc::gst::test
