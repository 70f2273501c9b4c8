#include "tests/integration/gst/gst_test_support.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <mutex>
#include <sstream>

#include "platform/gst/elements.h"

extern char** environ;

namespace kc::gst::test {

TempDir::TempDir() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/kc-gst-XXXXXX";
    if (!::mkdtemp(pattern.data())) {
        throw std::runtime_error("mkdtemp failed");
    }
    path_ = pattern;
}

TempDir::~TempDir() {
    if (std::getenv("KC_KEEP_TEST_FILES")) {
        std::cerr << "test files kept in " << path_ << "\n";
        return;
    }
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void init_gstreamer() {
    static std::once_flag once;
    std::call_once(once, [] {
        gst_init(nullptr, nullptr);
        if (!register_elements()) {
            throw std::runtime_error("kestrelavisink did not register");
        }
    });
}

bool has_element(const char* factory) {
    init_gstreamer();
    GstElementFactory* f = gst_element_factory_find(factory);
    if (!f) {
        return false;
    }
    gst_object_unref(f);
    return true;
}

bool make_dv_tape(const std::filesystem::path& path, avi::DvSystem system, int frames) {
    const bool pal = system == avi::DvSystem::pal_625_50;
    // avmux_dv takes one frame's worth of samples per buffer: 1920 at 25 Hz, 1602 (on
    // average 1601.6) at 29.97 Hz.
    std::ostringstream d;
    d << "videotestsrc num-buffers=" << frames
      << " pattern=ball ! video/x-raw,format=" << (pal ? "I420" : "Y41B")
      << ",width=720,height=" << (pal ? 576 : 480) << ",framerate=" << (pal ? "25/1" : "30000/1001")
      << ",pixel-aspect-ratio=" << (pal ? "16/15" : "8/9")
      << " ! avenc_dvvideo ! avmux_dv name=mux ! filesink location=\"" << path.string()
      << "\" audiotestsrc num-buffers=" << frames << " samplesperbuffer=" << (pal ? 1920 : 1602)
      << " ! audio/x-raw,format=S16LE,rate=48000,channels=2,layout=interleaved ! mux.";
    const RunResult r = run_pipeline(d.str());
    std::error_code e;
    return r.eos && std::filesystem::file_size(path, e) ==
                        static_cast<std::uintmax_t>(frames) * avi::dv_frame_bytes(system);
}

RunResult run_pipeline(const std::string& description, int timeout_s) {
    init_gstreamer();
    RunResult result;
    GError* parse_error = nullptr;
    GstElement* pipeline = gst_parse_launch(description.c_str(), &parse_error);
    if (!pipeline || parse_error) {
        result.error = parse_error ? parse_error->message : "could not build the pipeline";
        g_clear_error(&parse_error);
        if (pipeline) {
            gst_object_unref(pipeline);
        }
        return result;
    }
    GstBus* bus = gst_element_get_bus(pipeline);
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    const gint64 deadline = g_get_monotonic_time() + gint64{timeout_s} * G_USEC_PER_SEC;
    for (;;) {
        const gint64 left = deadline - g_get_monotonic_time();
        if (left <= 0) {
            result.error = "timed out";
            break;
        }
        GstMessage* msg = gst_bus_timed_pop_filtered(
            bus, static_cast<GstClockTime>(left) * GST_USECOND,
            static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
        if (!msg) {
            continue;
        }
        if (GST_MESSAGE_TYPE(msg) == GST_MESSAGE_EOS) {
            result.eos = true;
        } else {
            GError* err = nullptr;
            gchar* debug = nullptr;
            gst_message_parse_error(msg, &err, &debug);
            result.error = err->message;
            result.error_domain = err->domain;
            result.error_code = err->code;
            result.error_source = GST_OBJECT_NAME(GST_MESSAGE_SRC(msg));
            g_clear_error(&err);
            g_free(debug);
        }
        gst_message_unref(msg);
        break;
    }
    // Stopping finishes the file, EOS or not, as a stopped capture does.
    gst_element_set_state(pipeline, GST_STATE_NULL);
    if (GstElement* sink = gst_bin_get_by_name(GST_BIN(pipeline), "avisink")) {
        g_object_get(sink, "frames", &result.frames, nullptr);
        gst_object_unref(sink);
    }
    gst_object_unref(bus);
    gst_object_unref(pipeline);
    return result;
}

std::string run_program(const std::vector<std::string>& argv, int* status) {
    int fds[2];
    if (::pipe(fds) != 0) {
        throw std::runtime_error("pipe failed");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, fds[0]);
    std::vector<char*> args;
    for (const std::string& a : argv) {
        args.push_back(const_cast<char*>(a.c_str()));
    }
    args.push_back(nullptr);
    pid_t pid = 0;
    const int spawned = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    std::string out;
    if (spawned == 0) {
        char buffer[4096];
        ssize_t n;
        while ((n = ::read(fds[0], buffer, sizeof buffer)) > 0 || (n < 0 && errno == EINTR)) {
            if (n > 0) {
                out.append(buffer, static_cast<std::size_t>(n));
            }
        }
    }
    ::close(fds[0]);
    int wstatus = 0;
    if (spawned == 0) {
        ::waitpid(pid, &wstatus, 0);
    }
    if (status) {
        *status = spawned != 0
                      ? -1
                      : (WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus));
    }
    return out;
}

std::map<std::string, std::string> ffprobe(const std::filesystem::path& file) {
    const std::string out = run_program(
        {"ffprobe", "-v", "error", "-show_entries",
         "format=format_name,duration,nb_streams:stream=codec_type,codec_name,codec_tag_string,"
         "r_frame_rate,width,height,sample_rate,channels,sample_fmt,nb_frames,duration",
         "-of", "flat", file.string()});
    std::map<std::string, std::string> values;
    std::istringstream lines(out);
    std::string line;
    while (std::getline(lines, line)) {
        const auto eq = line.find('=');
        if (eq == std::string::npos) {
            continue;
        }
        std::string value = line.substr(eq + 1);
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
            value = value.substr(1, value.size() - 2);
        }
        values[line.substr(0, eq)] = value;
    }
    return values;
}

double number(const std::string& text) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    return text.empty() || *end != '\0' ? std::nan("") : value;
}

long count_packets(const std::filesystem::path& file, const std::string& stream) {
    int status = 0;
    const std::string out =
        run_program({"ffprobe", "-v", "error", "-count_packets", "-select_streams", stream,
                     "-show_entries", "stream=nb_read_packets", "-of", "csv=p=0", file.string()},
                    &status);
    if (status != 0 || out.empty()) {
        return -1;
    }
    return std::strtol(out.c_str(), nullptr, 10);
}

long decode_video_frames(const std::filesystem::path& file) {
    int status = 0;
    const std::string out = run_program({"ffmpeg", "-nostdin", "-v", "error", "-i", file.string(),
                                         "-map", "0:v:0", "-f", "null", "-progress", "pipe:1", "-"},
                                        &status);
    if (status != 0) {
        return -1;
    }
    long frames = -1;
    std::istringstream lines(out);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.rfind("frame=", 0) == 0) {
            frames = std::strtol(line.c_str() + 6, nullptr, 10);
        }
    }
    return frames;
}

long count_whole_video_chunks(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    const auto size = static_cast<std::uint64_t>(std::filesystem::file_size(file));
    std::uint64_t pos = 0;
    long frames = 0;
    std::uint8_t head[12];
    while (pos + 8 <= size) {
        in.seekg(static_cast<std::streamoff>(pos));
        in.read(reinterpret_cast<char*>(head), 8);
        const std::string id(reinterpret_cast<char*>(head), 4);
        const std::uint64_t chunk_size = head[4] | (head[5] << 8) | (head[6] << 16) |
                                         (static_cast<std::uint64_t>(head[7]) << 24);
        if (id == "RIFF" || id == "LIST") {
            // Step into lists whatever size they declare: a cut-off file may end inside.
            pos += 12;
            continue;
        }
        if (id == "00dc" && pos + 8 + chunk_size <= size) {
            ++frames;
        }
        pos += 8 + chunk_size + (chunk_size & 1);
    }
    return frames;
}

std::vector<std::uint8_t> read_file(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), {});
}

void write_file(const std::filesystem::path& file, const std::vector<std::uint8_t>& bytes) {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

}  // namespace kc::gst::test
