// The settings file on disk, through the real application object: first run, the
// exit's write, damaged files and a write that fails half-way.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "app/capapp.h"
#include "app/globals.h"
#include "platform/posix/posix_settings_store.h"
#include "tests/fakes/fake_media.h"
#include "tests/fakes/fake_platform.h"
#include "tests/unit/posix/env_guard.h"
#include "tests/unit/workflow/temp_dir.h"

namespace {
std::string read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

// A disk that fills up half-way through the write.
class FullDiskStore : public PosixSettingsStore {
  public:
    using PosixSettingsStore::PosixSettingsStore;

  protected:
    bool write_all(int fd, const std::string& data) override {
        PosixSettingsStore::write_all(fd, data.substr(0, data.size() / 2));
        return false;
    }
};

// A CapApp's life over a settings file: construct (read), let `change` alter the
// fields, destroy (write).
template <class Store = PosixSettingsStore>
struct AppLife {
    FakeDialogHost host;
    FakeSystem system;
    Store store;
    FakeMediaFactory media;
    CapPlatform platform{host, system, store, media};
    ScopedInstance scoped{platform};
    std::unique_ptr<CapApp> a;
    explicit AppLife(const std::string& file) : store(file) {
        a = std::make_unique<CapApp>(platform);
    }
};
}  // namespace

TEST(SettingsFile, TheDefaultPlaceIsTheXdgConfigFolder) {
    {
        EnvGuard xdg("XDG_CONFIG_HOME", "/tmp/cfg");
        EXPECT_EQ(PosixSettingsStore::default_file(), "/tmp/cfg/larkspur/kestrel_cap.reg");
    }
    EnvGuard home("HOME", "/home/someone");
    for (const char* unusable : {"", "relative/dir"}) {
        EnvGuard xdg("XDG_CONFIG_HOME", std::string(unusable));
        EXPECT_EQ(PosixSettingsStore::default_file(),
                  "/home/someone/.config/larkspur/kestrel_cap.reg");
    }
}

TEST(SettingsFile, AFirstRunUsesDefaultsAndTheExitWritesAllEightWithTheirTypes) {
    TempDir dir;
    const std::string file = dir.file("config/larkspur/kestrel_cap.reg");
    const double odd = std::nextafter(0.1, 0.0);
    {
        AppLife<> run(file);
        EXPECT_EQ(run.a->scene_name, "kestrel");
        EXPECT_EQ(run.a->disk_warning, 0.1);
        EXPECT_FALSE(std::filesystem::exists(file)) << "nothing is written before the exit";
        run.a->disk_warning = odd;
        run.a->output_directory = "/srv/video \"one\"\\";
        run.a->preroll = 25;
        run.a->scene_detection = true;
        run.a.reset();
    }
    const std::string text = read_file(file);
    for (const char* line :
         {"\"DV2\"=dword:00000000\n", "\"VideoCodec\"=dword:00000000\n",
          "\"AudioCodec\"=dword:00000000\n", "\"Preroll\"=dword:00000019\n",
          "\"OutputDirectory\"=\"/srv/video \\\"one\\\"\\\\\"\n", "\"DefaultScene\"=\"kestrel\"\n",
          "\"DiskspaceWarning\"=hex:99,99,99,99,99,99,b9,3f\n", "\"SceneDetection\"=hex:01\n"}) {
        EXPECT_NE(text.find(line), std::string::npos) << line << "\n" << text;
    }
    struct stat st {};
    ASSERT_EQ(stat(file.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 077, 0u) << "private to the user";

    AppLife<> again(file);
    EXPECT_EQ(std::memcmp(&again.a->disk_warning, &odd, sizeof odd), 0);
    EXPECT_EQ(again.a->output_directory, "/srv/video \"one\"\\");
    EXPECT_EQ(again.a->preroll, 25);
    EXPECT_TRUE(again.a->scene_detection);
}

TEST(SettingsFile, ADamagedFileNeverStopsTheProgramAndUnreadableValuesKeepDefaults) {
    TempDir dir;
    const std::string file = dir.file("kestrel_cap.reg");
    std::ofstream(file, std::ios::binary)
        << "[HKEY_CURRENT_USER\\Software\\larkspur\\kestrel_cap]\n"
           "\"DV2\"=dword:1\n"
           "\"Preroll\"=dword:xyz\n"
           "\"DefaultScene\"=\"unfinished\n"
           "\"OutputDirectory\"=\""
        << std::string(600, 'x')
        << "\"\n"
           "\xff\xfe garbage \x01\n"
           "\"SceneDetection\"=hex:01\n"
           "\"DiskspaceWarning\"=hex:9a,99,99";  // cut off by a crash
    AppLife<> run(file);
    EXPECT_EQ(run.a->dv_type2, 1);
    EXPECT_EQ(run.a->preroll, 0);
    EXPECT_EQ(run.a->scene_name, "kestrel");
    EXPECT_EQ(run.a->output_directory, run.system.videos);
    EXPECT_TRUE(run.a->scene_detection);
    EXPECT_EQ(run.a->disk_warning, 0.1);
}

TEST(SettingsFile, AnUnreadableFileOrFolderIsAFirstRun) {
    TempDir dir;
    std::filesystem::create_directory(dir.file("is_a_folder.reg"));
    AppLife<> run(dir.file("is_a_folder.reg"));
    EXPECT_EQ(run.a->scene_name, "kestrel");
    run.a.reset();  // the write fails quietly
    EXPECT_TRUE(std::filesystem::is_directory(dir.file("is_a_folder.reg")));
}

TEST(SettingsFile, AWriteThatFailsHalfWayLeavesTheOldFileWhole) {
    TempDir dir;
    const std::string file = dir.file("kestrel_cap.reg");
    {
        AppLife<> run(file);
        run.a->scene_name = "first";
    }
    const std::string before = read_file(file);
    ASSERT_NE(before.find("\"first\""), std::string::npos);
    {
        AppLife<FullDiskStore> run(file);
        EXPECT_EQ(run.a->scene_name, "first");
        run.a->scene_name = "second";
    }
    EXPECT_EQ(read_file(file), before);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1)
        << "no temporary file left behind";
}

TEST(SettingsFile, OtherKeysAndValuesOfTheFileAreKept) {
    TempDir dir;
    const std::string file = dir.file("kestrel_cap.reg");
    std::ofstream(file) << "[HKEY_CURRENT_USER\\Software\\larkspur\\kestrel_cap]\n"
                           "\"Extra\"=hex(b):01,02,03,04,05,06,07,08\n"
                           "[HKEY_CURRENT_USER\\Software\\other]\n"
                           "\"Kept\"=\"yes\"\n";
    { AppLife<> run(file); }
    const std::string text = read_file(file);
    EXPECT_NE(text.find("\"Extra\"=hex(b):01,02,03,04,05,06,07,08\n"), std::string::npos);
    EXPECT_NE(text.find("[HKEY_CURRENT_USER\\Software\\other]\n\"Kept\"=\"yes\"\n"),
              std::string::npos);
}

TEST(SettingsFile, TheStoreAnswersAsTheRegistryCallsDo) {
    TempDir dir;
    PosixSettingsStore store(dir.file("s.reg"));
    StoreKey key = nullptr;
    ASSERT_EQ(store.create_key("Software\\x", &key), S_OK);
    const char text[] = "abcdef";
    EXPECT_EQ(store.set_value(key, "T", RegType::sz, text, 6), S_OK);
    char buffer[4];
    std::uint32_t size = sizeof buffer;
    EXPECT_EQ(store.query_value(key, "T", buffer, &size), STORE_E_MORE_DATA);
    EXPECT_EQ(size, 6u);
    size = sizeof buffer;
    EXPECT_EQ(store.query_value(key, "missing", buffer, &size), STORE_E_NOT_FOUND);
    StoreKey bogus = reinterpret_cast<StoreKey>(&size);
    EXPECT_EQ(store.query_value(bogus, "T", buffer, &size), E_INVALIDARG);
    EXPECT_EQ(store.set_value(bogus, "T", RegType::sz, text, 6), E_INVALIDARG);
    store.close_key(key);
    EXPECT_TRUE(std::filesystem::exists(dir.file("s.reg")));
}
