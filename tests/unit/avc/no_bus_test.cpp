// FireWire device control on a machine without a FireWire bus: nothing is listed and
// every control call fails with a real error. With a bus these checks do not apply and
// skip; the hardware test covers that machine.
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/avc/bus.h"
#include "platform/avc/dv_control.h"
#include "platform/avc/raw1394_channel.h"

namespace kc::avc {
namespace {

bool has_firewire_bus() {
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator("/dev", ec)) {
        if (entry.path().filename().string().starts_with("fw")) {
            return true;
        }
    }
    return false;
}

class NoBusTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (has_firewire_bus()) {
            GTEST_SKIP() << "this machine has a FireWire bus";
        }
    }
};

TEST_F(NoBusTest, TheBusListsNothingAndSaysWhy) {
    HRESULT why = S_OK;
    EXPECT_TRUE(scan_bus(&why).empty());
    EXPECT_TRUE(failed(why));
    EXPECT_TRUE(scan_bus().empty());
}

TEST_F(NoBusTest, EveryControlCallFails) {
    AvcDeviceControl* control =
        AvcDeviceControl::create(std::make_unique<Raw1394Channel>(0x080046010203ABCDull));
    long value = 0;
    EXPECT_TRUE(failed(control->get_capability(media::ED_DEVCAP_NORMAL_RATE, &value, nullptr)));
    EXPECT_TRUE(failed(control->get_capability(media::ED_DEVCAP_DEVICE_TYPE, &value, nullptr)));
    for (const long mode : {media::ED_MODE_PLAY, media::ED_MODE_STOP, media::ED_MODE_FREEZE,
                            media::ED_MODE_FF, media::ED_MODE_STEP_REV}) {
        EXPECT_TRUE(failed(control->put_mode(mode))) << mode;
    }
    EXPECT_TRUE(failed(control->get_status(media::ED_MODE, &value)));
    media::TimecodeSample sample;
    sample.flags = media::ED_DEVCAP_TIMECODE_READ;
    EXPECT_TRUE(failed(control->get_timecode(sample)));
    sample.flags = media::ED_DEVCAP_ATN_READ;
    EXPECT_TRUE(failed(control->get_timecode(sample)));
    std::uint8_t frame[8] = {0x00, 0x20, 0x52, 0x20, 0x00, 0x00, 0x00, 0xFF};
    long length = 8;
    const HRESULT hr =
        control->get_transport_basic_parameters(media::ED_RAW_EXT_DEV_CMD, &length, frame);
    EXPECT_TRUE(failed(hr));
    // The failure carries an errno the error dialog can describe, not a bare E_FAIL.
    EXPECT_EQ(static_cast<std::uint32_t>(hr) & 0xFFFF0000u, 0x80070000u);
    EXPECT_NE(hr, hresult_from_errno(0));
    control->release();
}

TEST(Raw1394Channel, RefusesFramesOfBadSizeBeforeTouchingTheBus) {
    Raw1394Channel channel(1);
    Frame response;
    EXPECT_EQ(channel.transact({}, response), E_INVALIDARG);
    const Frame huge(513, 0);
    EXPECT_EQ(channel.transact(huge, response), E_INVALIDARG);
}

}  // namespace
}  // namespace kc::avc
