// CapGraph: the one filter graph of the program, device enumeration, and the four graph
// shapes it ever runs (DV and WDM preview, DV type 1 / type 2 and WDM capture).
#pragma once

#include <cstdint>
#include <string>

#include "graph/stdcap.h"
#include "platform/media.h"

class CapGraph {
  public:
    // Creates the filter graph and the capture graph builder and attaches them.
    explicit CapGraph(media::MediaFactory& factory);
    CapGraph(const CapGraph&) = delete;
    CapGraph& operator=(const CapGraph&) = delete;

    // Device enumeration callback: true to go on.
    using EnumCallback = bool (*)(media::Moniker* moniker, void* context);

    void enum_devices(media::DeviceCategory category, EnumCallback callback, void* context);
    ComPtr<media::BaseFilter> get_filter(media::DeviceCategory category, int index);
    void add_filter(media::BaseFilter* filter);

    void set_output_file(const std::string& path);
    void build_dv_type1_capture();
    void build_dv_type2_capture();
    void build_wdm_capture(int video_codec, int audio_codec);
    void build_dv_preview();
    void build_wdm_preview();
    void set_interleaving(int mode);
    void teardown();
    void remove_downstream(media::BaseFilter* filter);

  private:
    media::MediaFactory& factory;

  public:
    // Declared in this order so that destruction releases avisink first, graph last.
    ComPtr<media::GraphBuilder> graph;
    ComPtr<media::CaptureGraphBuilder> builder;
    ComPtr<media::BaseFilter> source;
    ComPtr<media::BaseFilter> audio_source;
    ComPtr<media::BaseFilter> avimux;
    ComPtr<media::FileSink> avisink;
};

// Appends the device's friendly name to a drop-down list (context: its window handle).
bool add_device_name(media::Moniker* moniker, void* combo);

// "Filter %08x" with a 32-bit identity unique to the filter object within this run.
std::string filter_graph_name(media::BaseFilter* filter);
// "Filter %08x" of one identity: eight lower-case hexadecimal digits, zero-filled.
std::string filter_name_of(std::uint32_t identity);
