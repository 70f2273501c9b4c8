#include "app/capapp.h"

#include "app/errors.h"

CapApp::CapApp(CapPlatform& platform_)
    : platform(platform_),
      graph(std::make_unique<CapGraph>(platform_.media)),
      win(std::make_unique<CapWin>(platform_.dialogs)),
      dv(std::make_unique<CapDvDevice>()),
      jobs(std::make_unique<std::list<CapJob*>>()),
      dropped(std::make_unique<ComPtr<media::DroppedFrames>>()) {
    // Defaults before binding: a value the store lacks keeps them. Captures go to the
    // user's usual videos folder until the user picks another.
    dv_type2 = 0;
    video_codec = 0;
    audio_codec = 0;
    output_directory = platform.system.default_output_directory();
    scene_name = "kestrel";
    preroll = 0;
    disk_warning = 0.1;
    scene_detection = false;
    current_job = jobs->end();
    last_timecode.clear();

    SettingsStore& store = platform.settings;
    reg_dv2 = std::make_unique<CapRegValue>(store, settings_key_path, "DV2", dv_type2);
    reg_video_codec =
        std::make_unique<CapRegValue>(store, settings_key_path, "VideoCodec", video_codec);
    reg_audio_codec =
        std::make_unique<CapRegValue>(store, settings_key_path, "AudioCodec", audio_codec);
    reg_output_directory = std::make_unique<CapRegValue>(store, settings_key_path,
                                                         "OutputDirectory", output_directory);
    reg_default_scene =
        std::make_unique<CapRegValue>(store, settings_key_path, "DefaultScene", scene_name);
    reg_preroll = std::make_unique<CapRegValue>(store, settings_key_path, "Preroll", preroll);
    reg_diskspace_warning =
        std::make_unique<CapRegValue>(store, settings_key_path, "DiskspaceWarning", disk_warning);
    reg_scene_detection =
        std::make_unique<CapRegValue>(store, settings_key_path, "SceneDetection", scene_detection);
}

CapApp::~CapApp() {
    // The owned objects let go of the platform first; only then are the settings
    // written, each binding in the reverse order of binding.
    dropped.reset();
    for (CapJob* job : *jobs) {
        delete job;
    }
    jobs.reset();
    dv.reset();
    win.reset();
    graph.reset();

    reg_scene_detection.reset();
    reg_diskspace_warning.reset();
    reg_preroll.reset();
    reg_default_scene.reset();
    reg_output_directory.reset();
    reg_audio_codec.reset();
    reg_video_codec.reset();
    reg_dv2.reset();
}

void CapApp::connect() {
    ComPtr<media::BaseFilter>& source = graph->source;
    source = graph->get_filter(media::DeviceCategory::video_input, video_device);
    CAP_ASSERT(source.valid());
    graph->add_filter(source.get());

    source_is_dv = is_dv(source.get());
    if (source_is_dv) {
        dv->attach(source.get());
        dv_mode = dv->query_dv_mode();
    } else {
        ComPtr<media::BaseFilter>& audio_source = graph->audio_source;
        audio_source = graph->get_filter(media::DeviceCategory::audio_input, audio_device);
        CAP_ASSERT(audio_source.valid());
        graph->add_filter(audio_source.get());
        dv_mode = 0;
    }
}

void CapApp::disconnect() {
    if (win->attached()) {
        win->detach();
    }
    if (dv->attached()) {
        dv->detach();
    }
    if (graph->source.valid()) {
        graph->teardown();
        // The source goes whatever the graph answers: it is released right after.
        (void)graph->graph->remove_filter(graph->source.get());
        graph->source.release();
    }
}

void CapApp::build_preview() {
    if (source_is_dv) {
        graph->build_dv_preview();
    } else {
        graph->build_wdm_preview();
    }
}

void CapApp::find_dropped_frames() {
    dropped->reset();
    // Not every source counts frames; without the interface the counters are simply
    // not shown, so the result is not an error.
    (void)graph->builder->find_interface(
        media::PinCategory::capture,
        source_is_dv ? media::MajorType::interleaved : media::MajorType::video, graph->source.get(),
        media::DroppedFrames::iid, dropped->out_void());
}
