// Which FireWire nodes are DV units in the device list, and what they are called.
#include "platform/avc/unit.h"

#include <gtest/gtest.h>

namespace kc::avc {
namespace {

UnitInfo camcorder() {
    UnitInfo unit;
    unit.guid = 0x080046010203ABCDull;
    unit.unit_spec_id = 0x00A02D;
    unit.unit_sw_version = 0x010001;
    unit.labels = {"SONY", "DCR-TRV900"};
    unit.tape_subunit = true;
    return unit;
}

TEST(AvcUnit, AvcUnitsWithATapeOrCameraAreDvUnits) {
    UnitInfo unit = camcorder();
    EXPECT_TRUE(is_dv_unit(unit));
    unit.unit_sw_version = 0x010002;  // a later revision of the command set
    EXPECT_TRUE(is_dv_unit(unit));

    unit.tape_subunit = false;
    unit.camera_subunit = true;  // a camcorder in camera mode streams live
    EXPECT_TRUE(is_dv_unit(unit));
    unit.camera_subunit = false;  // an AV/C tuner or audio unit
    EXPECT_FALSE(is_dv_unit(unit));

    unit = camcorder();
    unit.unit_spec_id = 0x00609E;  // SBP-2 storage
    EXPECT_FALSE(is_dv_unit(unit));
    unit = camcorder();
    unit.unit_sw_version = 0x020001;
    EXPECT_FALSE(is_dv_unit(unit));
}

TEST(AvcUnit, NamesComeFromTheRomLabels) {
    UnitInfo unit = camcorder();
    EXPECT_EQ(unit_name(unit), "SONY DCR-TRV900");
    unit.labels = {"  Canon ", "", "GL2\n"};
    EXPECT_EQ(unit_name(unit), "Canon GL2");
    unit.labels = {" ", ""};
    EXPECT_EQ(unit_name(unit), "FireWire DV device 080046010203abcd");
    unit.labels.clear();
    unit.guid = 0x12;
    EXPECT_EQ(unit_name(unit), "FireWire DV device 0000000000000012");
}

TEST(AvcUnit, GuidTextRoundTrips) {
    EXPECT_EQ(guid_text(0), "0000000000000000");
    EXPECT_EQ(guid_text(0xFEDCBA9876543210ull), "fedcba9876543210");
    EXPECT_EQ(parse_guid("fedcba9876543210"), 0xFEDCBA9876543210ull);
    EXPECT_EQ(parse_guid("0x080046010203ABCD"), 0x080046010203ABCDull);
    EXPECT_EQ(parse_guid(guid_text(0x1234)), 0x1234u);
    EXPECT_FALSE(parse_guid(""));
    EXPECT_FALSE(parse_guid("0x"));
    EXPECT_FALSE(parse_guid("12345678901234567"));  // 17 digits
    EXPECT_FALSE(parse_guid("12g4"));
    EXPECT_FALSE(parse_guid("-12"));
    EXPECT_FALSE(parse_guid("12 "));
}

}  // namespace
}  // namespace kc::avc
