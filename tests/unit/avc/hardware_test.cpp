// Device control of a real unit on a real FireWire bus. Skips on machines without
// one (the usual case); labelled firewire.
#include <gtest/gtest.h>

#include "platform/avc/bus.h"
#include "platform/avc/dv_control.h"
#include "platform/avc/raw1394_channel.h"

namespace kc::avc {
namespace {

TEST(FirewireHardware, AConnectedUnitAnswersTheStatusQueries) {
    std::vector<UnitInfo> units;
    for (UnitInfo& unit : scan_bus()) {
        if (is_dv_unit(unit)) {
            units.push_back(std::move(unit));
        }
    }
    if (units.empty()) {
        GTEST_SKIP() << "no DV unit on a FireWire bus";
    }
    for (const UnitInfo& unit : units) {
        SCOPED_TRACE(unit_name(unit));
        AvcDeviceControl* control =
            AvcDeviceControl::create(std::make_unique<Raw1394Channel>(unit.guid));
        long rate = 0;
        EXPECT_EQ(control->get_capability(media::ED_DEVCAP_NORMAL_RATE, &rate, nullptr), S_OK);
        EXPECT_TRUE(rate == media::ED_RATE_25 || rate == media::ED_RATE_2997) << rate;
        long type = -1;
        EXPECT_EQ(control->get_capability(media::ED_DEVCAP_DEVICE_TYPE, &type, nullptr), S_OK);
        EXPECT_TRUE(type == media::ED_DEVTYPE_VCR || type == media::ED_DEVTYPE_CAMERA) << type;
        if (type == media::ED_DEVTYPE_VCR) {
            long mode = 0;
            EXPECT_EQ(control->get_status(media::ED_MODE, &mode), S_OK);
            EXPECT_NE(mode, 0);
        }
        control->release();
    }
}

}  // namespace
}  // namespace kc::avc
