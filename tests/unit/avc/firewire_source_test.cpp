// FireWire units in the media layer's device list: which scanned units are listed, under
// which names, and the capture element made for one.
#include "platform/avc/firewire_source.h"

#include <gtest/gtest.h>

#include "platform/media.h"

namespace kc::avc {
namespace {

UnitInfo unit(std::uint64_t guid, std::vector<std::string> labels, bool tape, bool camera) {
    UnitInfo u;
    u.guid = guid;
    u.unit_spec_id = 0x00A02D;
    u.unit_sw_version = 0x010001;
    u.labels = std::move(labels);
    u.tape_subunit = tape;
    u.camera_subunit = camera;
    return u;
}

class FirewireSourceTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { gst_init(nullptr, nullptr); }
};

TEST_F(FirewireSourceTest, ListsTheDvUnitsOfEachScanInBusOrder) {
    int scans = 0;
    std::vector<UnitInfo> bus = {unit(0x10, {"SONY", "DSR-11"}, true, false),
                                 unit(0x20, {"Yamaha", "GO46"}, false, false),
                                 unit(0x30, {"Canon", "GL2"}, false, true)};
    FirewireSourceProvider provider([&] {
        ++scans;
        return bus;
    });
    auto devices = provider.devices();
    ASSERT_EQ(devices.size(), 2u);
    EXPECT_EQ(devices[0]->friendly_name(), "SONY DSR-11");
    EXPECT_EQ(devices[0]->device_path(), "0000000000000010");
    EXPECT_EQ(devices[1]->friendly_name(), "Canon GL2");
    EXPECT_EQ(devices[1]->device_path(), "0000000000000030");

    // Unplugged between two enumerations: gone at the next one.
    bus.erase(bus.begin());
    devices = provider.devices();
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0]->friendly_name(), "Canon GL2");
    EXPECT_EQ(scans, 2);

    bus.clear();
    EXPECT_TRUE(provider.devices().empty());
}

TEST_F(FirewireSourceTest, CapturesWithDv1394srcByGuidWithoutItsOwnTapeControl) {
    GstElementFactory* factory = gst_element_factory_find("dv1394src");
    if (factory == nullptr) {
        GTEST_SKIP() << "the 1394 GStreamer plugin is not installed";
    }
    gst_object_unref(factory);
    FirewireSourceDevice device(unit(0x080046010203ABCDull, {"SONY", "DSR-11"}, true, false));
    GstElement* source = device.create_source();
    ASSERT_NE(source, nullptr);
    EXPECT_TRUE(g_object_is_floating(source));
    gst_object_ref_sink(source);

    GstPad* pad = gst_element_get_static_pad(source, "src");
    ASSERT_NE(pad, nullptr);
    GstCaps* caps = gst_pad_query_caps(pad, nullptr);
    GstCaps* dv = gst_caps_from_string("video/x-dv, systemstream=(boolean)true");
    EXPECT_TRUE(gst_caps_is_subset(caps, dv)) << gst_caps_to_string(caps);
    gst_caps_unref(dv);
    gst_caps_unref(caps);
    gst_object_unref(pad);

    GstElement* capture = nullptr;
    GstIterator* it = gst_bin_iterate_elements(GST_BIN(source));
    GValue item = G_VALUE_INIT;
    while (gst_iterator_next(it, &item) == GST_ITERATOR_OK) {
        auto* element = GST_ELEMENT(g_value_get_object(&item));
        if (g_strcmp0(GST_OBJECT_NAME(gst_element_get_factory(element)), "dv1394src") == 0) {
            capture = GST_ELEMENT(gst_object_ref(element));
        }
        g_value_reset(&item);
    }
    g_value_unset(&item);
    gst_iterator_free(it);
    ASSERT_NE(capture, nullptr);
    guint64 guid = 0;
    gboolean use_avc = TRUE;
    g_object_get(capture, "guid", &guid, "use-avc", &use_avc, nullptr);
    EXPECT_EQ(guid, 0x080046010203ABCDull);
    EXPECT_FALSE(use_avc);
    gst_object_unref(capture);
    gst_object_unref(source);
}

TEST_F(FirewireSourceTest, ControlObjectAnswersTheDeviceControlInterfaces) {
    FirewireSourceDevice device(unit(0x42, {"SONY", "DSR-11"}, true, false));
    Unknown* control = device.control();
    ASSERT_NE(control, nullptr);
    void* face = nullptr;
    ASSERT_EQ(control->query_interface(Iid::ext_device, &face), S_OK);
    static_cast<media::ExtDevice*>(face)->release();
    ASSERT_EQ(control->query_interface(Iid::ext_transport, &face), S_OK);
    static_cast<media::ExtTransport*>(face)->release();
    ASSERT_EQ(control->query_interface(Iid::timecode_reader, &face), S_OK);
    static_cast<media::TimecodeReader*>(face)->release();
    EXPECT_EQ(control->release(), 0u);
}

}  // namespace
}  // namespace kc::avc
