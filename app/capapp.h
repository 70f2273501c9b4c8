// CapApp: the one application object. It owns the capture graph, the preview window and
// media control, the DV device, the scene list and the dropped-frames holder; it holds
// the device choice, the settings, the state of a running capture and the last disk
// reading. Its workflow operations are spread over the workflow/ sources.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "app/settings.h"
#include "graph/capdv.h"
#include "graph/capgraph.h"
#include "graph/capwin.h"
#include "graph/stdcap.h"
#include "platform/platform.h"
#include "workflow/batch_callback.h"
#include "workflow/capjob.h"
#include "workflow/timecode.h"

class CapApp {
  public:
    explicit CapApp(CapPlatform& platform);
    CapApp(const CapApp&) = delete;
    CapApp& operator=(const CapApp&) = delete;
    ~CapApp();

    // --- Connection (reconnect cycle) ---
    void connect();
    void disconnect();
    void build_preview();

    // --- Scene list ---
    CapJob* job_at(int i);
    std::string next_job_name();
    CapJob* add_job(const Timecode& position);
    // Shows application message 2 and returns false when the list is empty.
    bool set_out_point(const Timecode& position);
    void remove_job(CapJob* job);
    void apply_preroll();

    // --- File naming ---
    void next_file_name(std::string& out);

    // --- Recording and disk space ---
    void start_recording();
    // The Record toggle. False when the output directory does not exist (message 12
    // shown, nothing changed).
    bool toggle_recording();
    void update_disk_space();
    // The warning half of the disk check, after update_disk_space and the display:
    // warns once per fall below the threshold and ends a recording or asks a running
    // batch to stop. `disk_warned` is the main window's flag.
    void low_disk_check(bool& disk_warned);

    // --- Batch capture ---
    void start_batch(CapBatchCallback* cb);
    bool batch_step(std::uint32_t track);
    void stop_batch();
    void start_job(CapJob* job);

    // --- Scene-detection capture ---
    void start_scene_capture(CapBatchCallback* cb, std::string& first_file);
    bool scene_step(const Timecode& tc, std::string& new_file);
    void next_scene_file(std::string& out);

    // True for a DV device in VCR mode: the tape is started and stopped with captures.
    bool dv_vcr() const { return source_is_dv && dv_mode == 1; }

    CapPlatform& platform;

    std::unique_ptr<CapGraph> graph;
    std::unique_ptr<CapWin> win;
    std::unique_ptr<CapDvDevice> dv;
    std::unique_ptr<std::list<CapJob*>> jobs;
    std::unique_ptr<ComPtr<media::DroppedFrames>> dropped;
    int video_device = 0;
    int audio_device = 0;
    std::int32_t video_codec = 0;
    std::int32_t audio_codec = 0;
    bool source_is_dv = false;
    std::int32_t dv_type2 = 0;
    bool recording = false;
    int dv_mode = 0;
    std::string output_directory;
    std::string scene_name;
    bool inbatch = false;
    CapBatchCallback* callback = nullptr;
    float batch_done = 0;
    float batch_total = 0;
    std::list<CapJob*>::iterator current_job;
    std::int32_t preroll = 0;
    int scene_count = 0;
    Timecode last_timecode;
    std::string scene_base;
    bool scene_detection = false;
    std::string current_file;
    double free_fraction = 1.0;
    double disk_warning = 0.1;
    double free_bytes = -1.0;

  private:
    // Finds the capture pin's dropped-frames interface of the graph just built.
    void find_dropped_frames();
    // Ends the capture of the current file: a DV VCR's tape stops (the graph then runs
    // dry), any other source's graph stops.
    void stop_capture();
    // Tells a capture path that can place every frame itself that the recording changed,
    // so that the file ends exactly at the break (see media::SceneSplit).
    void split_at_break();
    // Whether that capture path holds frames from a recording break it has seen in the
    // stream and the capture has not split at.
    bool stream_holds_break();
    // Deletes a capture file that is too short to keep, and its log.
    void delete_capture_file(const std::string& path);
    // The tail of every DV capture start: the graph writing `path`, its counters, the
    // picture in `pane`, the tape playing and the graph running.
    void run_dv_capture(const std::string& path, WindowHandle pane);
    // `output_directory` joined with `file_name` by the platform's separator.
    std::string output_path(const std::string& file_name);

    // Bound last, after every field holds its default. The destructor resets them
    // itself, after the owned objects, in the reverse order of binding.
    std::unique_ptr<CapRegValue> reg_dv2;
    std::unique_ptr<CapRegValue> reg_video_codec;
    std::unique_ptr<CapRegValue> reg_audio_codec;
    std::unique_ptr<CapRegValue> reg_output_directory;
    std::unique_ptr<CapRegValue> reg_default_scene;
    std::unique_ptr<CapRegValue> reg_preroll;
    std::unique_ptr<CapRegValue> reg_diskspace_warning;
    std::unique_ptr<CapRegValue> reg_scene_detection;
};
