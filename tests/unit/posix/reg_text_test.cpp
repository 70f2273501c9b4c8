// The settings file's notation: what is written reads back exactly, and whatever a
// person or a crash did to the file, what can be read is read and the rest is absent.
#include <gtest/gtest.h>

#include <random>

#include "platform/posix/reg_text.h"

namespace {
const std::string key_path = "HKEY_CURRENT_USER\\Software\\larkspur\\kestrel_cap";

RegTextDocument sample() {
    RegTextDocument d;
    RegTextKey& k = d.add_key(key_path);
    k.values.push_back({"DV2", RegType::dword, {1, 0, 0, 0}});
    k.values.push_back({"VideoCodec", RegType::dword, {0xff, 0xff, 0xff, 0xff}});
    k.values.push_back({"OutputDirectory", RegType::sz,
                        std::vector<std::uint8_t>{'C', ':', '\\', 'a', '"', 'b', ' '}});
    k.values.push_back({"DefaultScene", RegType::sz, {}});
    k.values.push_back(
        {"DiskspaceWarning", RegType::binary, {0x9a, 0x99, 0x99, 0x99, 0x99, 0x99, 0xb9, 0x3f}});
    k.values.push_back({"SceneDetection", RegType::binary, {1}});
    // Text that the quoted form cannot carry, and a long list that wraps.
    k.values.push_back({"Odd", RegType::sz, {'a', '\n', 0, 'b'}});
    k.values.push_back({"Long", RegType::binary, std::vector<std::uint8_t>(70, 0xab)});
    k.values.push_back({"Other", static_cast<RegType>(11), {1, 2, 3, 4, 5, 6, 7, 8}});
    d.add_key("HKEY_CURRENT_USER\\Software\\someone\\else")
        .values.push_back({"x", RegType::dword, {2, 0, 0, 0}});
    return d;
}

void expect_same(const RegTextDocument& a, const RegTextDocument& b) {
    ASSERT_EQ(a.keys.size(), b.keys.size());
    for (std::size_t i = 0; i < a.keys.size(); ++i) {
        EXPECT_EQ(a.keys[i].path, b.keys[i].path);
        ASSERT_EQ(a.keys[i].values.size(), b.keys[i].values.size()) << a.keys[i].path;
        for (std::size_t j = 0; j < a.keys[i].values.size(); ++j) {
            const RegTextValue& x = a.keys[i].values[j];
            const RegTextValue& y = b.keys[i].values[j];
            EXPECT_EQ(x.name, y.name);
            EXPECT_EQ(x.type, y.type) << x.name;
            EXPECT_EQ(x.bytes, y.bytes) << x.name;
        }
    }
}

// The values of the one key of a parsed text, as "name=type:bytes".
std::vector<std::string> values_of(const std::string& text) {
    RegTextDocument d = parse_reg_text(text);
    std::vector<std::string> out;
    for (const RegTextKey& k : d.keys) {
        for (const RegTextValue& v : k.values) {
            std::string s = v.name + "=" + std::to_string(static_cast<int>(v.type)) + ":";
            for (std::uint8_t b : v.bytes) {
                s += std::to_string(b) + ",";
            }
            out.push_back(s);
        }
    }
    return out;
}
}  // namespace

TEST(RegText, WhatIsWrittenReadsBackWithTypesAndExactBytes) {
    const RegTextDocument d = sample();
    const std::string text = format_reg_text(d);
    expect_same(parse_reg_text(text), d);
    // Readable by a person: the usual export notation.
    EXPECT_NE(text.find("[" + key_path + "]\n"), std::string::npos);
    EXPECT_NE(text.find("\"DV2\"=dword:00000001\n"), std::string::npos);
    EXPECT_NE(text.find("\"OutputDirectory\"=\"C:\\\\a\\\"b \"\n"), std::string::npos);
    EXPECT_NE(text.find("\"DiskspaceWarning\"=hex:9a,99,99,99,99,99,b9,3f\n"), std::string::npos);
    EXPECT_NE(text.find("\"Odd\"=hex(1):61,0a,00,62\n"), std::string::npos);
    EXPECT_NE(text.find(",\\\n  ab"), std::string::npos) << "long lists wrap";
}

TEST(RegText, HandWrittenFormsAreUnderstood) {
    EXPECT_EQ(values_of("[HKEY_CURRENT_USER\\k]\r\n"
                        "; a comment\r\n"
                        "  \"Preroll\" = dword:19\r\n"
                        "\"DiskspaceWarning\"=HEX: 00 , 01,\\\r\n"
                        "   ff\r\n"
                        "@=\"default\"\r\n"),
              (std::vector<std::string>{"Preroll=4:25,0,0,0,", "DiskspaceWarning=3:0,1,255,",
                                        "=1:100,101,102,97,117,108,116,"}));
    // Names match without regard to case; the last of two equal names wins.
    EXPECT_EQ(values_of("[k]\n\"A\"=dword:1\n\"a\"=dword:2\n"),
              std::vector<std::string>{"a=4:2,0,0,0,"});
}

TEST(RegText, DamagedLinesAreSkippedAndTheRestIsRead) {
    const std::string text =
        "\"Outside\"=dword:1\n"  // no key yet
        "[k\n"                   // broken header: its values have no key
        "\"Lost\"=dword:1\n"
        "[k]\n"
        "\"NoQuote=dword:2\n"
        "\"BadDword\"=dword:12345678a\n"
        "\"NotHex\"=dword:zz\n"
        "\"BadByte\"=hex:1,2x,3\n"
        "\"BigByte\"=hex:100\n"
        "\"Dangling\"=hex:01,\n"
        "\"OpenText\"=\"abc\n"
        "\"Trailing\"=\"abc\" junk\n"
        "\"NoEquals\" dword:1\n"
        "\"Deleted\"=-\n"
        "\"BadType\"=hex(zz):01\n"
        "garbage line\n"
        "\x01\x02\xff\n"
        "\"Good\"=dword:00000007\n"
        "[-k2]\n"
        "\"InDeleted\"=dword:1\n";
    EXPECT_EQ(values_of(text), std::vector<std::string>{"Good=4:7,0,0,0,"});
}

TEST(RegText, AFileCutOffAnywhereNeverYieldsAWrongValue) {
    const RegTextDocument d = sample();
    const std::string text = format_reg_text(d);
    const RegTextKey& full = d.keys[0];
    for (std::size_t cut = 0; cut <= text.size(); ++cut) {
        RegTextDocument part = parse_reg_text(text.substr(0, cut));
        for (RegTextKey& k : part.keys) {
            if (k.path != key_path) {
                continue;
            }
            for (const RegTextValue& v : k.values) {
                bool matches = false;
                for (const RegTextValue& w : full.values) {
                    matches =
                        matches || (w.name == v.name && w.type == v.type && w.bytes == v.bytes);
                }
                EXPECT_TRUE(matches) << "cut at " << cut << ": " << v.name;
            }
        }
    }
}

TEST(RegText, MangledFilesParseAndWhatIsReadSurvivesTheNextWrite) {
    // Seeded, so that a failure can be reproduced: bytes replaced, dropped and doubled
    // all over a valid file, as a careless hand or a broken disk would.
    const std::string text = format_reg_text(sample());
    std::mt19937 random(20261123);
    for (int round = 0; round < 2000; ++round) {
        std::string mangled = text;
        const int edits = 1 + static_cast<int>(random() % 8);
        for (int e = 0; e < edits && !mangled.empty(); ++e) {
            const std::size_t at = random() % mangled.size();
            switch (random() % 3) {
                case 0:
                    mangled[at] = static_cast<char>(random() % 256);
                    break;
                case 1:
                    mangled.erase(at, 1);
                    break;
                default:
                    mangled.insert(at, 1, mangled[at]);
                    break;
            }
        }
        const RegTextDocument once = parse_reg_text(mangled);
        expect_same(parse_reg_text(format_reg_text(once)), once);
        if (testing::Test::HasFailure()) {
            ADD_FAILURE() << "round " << round;
            return;
        }
    }
}
