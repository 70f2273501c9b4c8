// The settings in the registry, through the real application object: the key and its
// eight values with their types and sizes, read back bit for bit, and the registry's
// own answers for what cannot be read.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <random>

#include "app/capapp.h"
#include "app/errors.h"
#include "tests/fakes/fake_media.h"
#include "tests/fakes/fake_platform.h"
// The Windows headers come last (platform/win/win32.h says why).
#include "platform/win/win_settings_store.h"

namespace {
// A key of this test's own under HKEY_CURRENT_USER, removed afterwards, so that tests
// running side by side never share values.
class ScratchKey {
  public:
    ScratchKey() {
        std::random_device seed;
        path = "Software\\kestrel-tests\\" + std::to_string(seed());
        EXPECT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                                  nullptr, &key, nullptr),
                  ERROR_SUCCESS);
    }
    ~ScratchKey() {
        RegCloseKey(key);
        RegDeleteTreeA(HKEY_CURRENT_USER, path.c_str());
    }
    ScratchKey(const ScratchKey&) = delete;
    ScratchKey& operator=(const ScratchKey&) = delete;

    std::string path;
    HKEY key = nullptr;
};

// What the registry holds for one value of the settings key under `root`, byte for byte
// (RegGetValueA would add a terminating zero to a text that has none).
struct Stored {
    DWORD type = REG_NONE;
    std::string bytes;
};
Stored stored(HKEY root, const char* value) {
    Stored s;
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyExA(root, settings_key_path, 0, KEY_READ, &key), ERROR_SUCCESS);
    char buffer[1024];
    DWORD size = sizeof buffer;
    EXPECT_EQ(
        RegQueryValueExA(key, value, nullptr, &s.type, reinterpret_cast<BYTE*>(buffer), &size),
        ERROR_SUCCESS)
        << value;
    RegCloseKey(key);
    s.bytes.assign(buffer, size);
    return s;
}

void store(HKEY root, const char* value, DWORD type, const void* data, DWORD size) {
    ASSERT_EQ(RegSetKeyValueA(root, settings_key_path, value, type, data, size), ERROR_SUCCESS);
}

std::string bytes_of(const void* data, std::size_t size) {
    return std::string(static_cast<const char*>(data), size);
}

// A CapApp's life over the registry below `root`: construct (read), change the fields,
// destroy (write).
struct AppLife {
    FakeDialogHost host;
    FakeSystem system;
    WinSettingsStore store;
    FakeMediaFactory media;
    CapPlatform platform{host, system, store, media};
    ScopedInstance scoped{platform};
    std::unique_ptr<CapApp> a;
    explicit AppLife(HKEY root) : store(root) { a = std::make_unique<CapApp>(platform); }
};
}  // namespace

TEST(RegistrySettings, AFirstRunCreatesTheKeyAndTheExitWritesAllEightAsTheyAreRead) {
    // The program's own key in the build's private Wine prefix; only this test uses it.
    RegDeleteTreeA(HKEY_CURRENT_USER, settings_key_path);
    const double odd = std::nextafter(0.1, 0.0);
    {
        AppLife run(HKEY_CURRENT_USER);
        EXPECT_EQ(run.a->scene_name, "kestrel");
        EXPECT_EQ(run.a->output_directory, run.system.videos);
        EXPECT_EQ(run.a->disk_warning, 0.1);
        EXPECT_FALSE(run.a->scene_detection);
        HKEY opened = nullptr;
        ASSERT_EQ(RegOpenKeyExA(HKEY_CURRENT_USER, settings_key_path, 0, KEY_READ, &opened),
                  ERROR_SUCCESS)
            << "the key is made when the settings are bound";
        DWORD values = 99;
        RegQueryInfoKeyA(opened, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &values,
                         nullptr, nullptr, nullptr, nullptr);
        RegCloseKey(opened);
        EXPECT_EQ(values, 0u) << "nothing is written before the exit";

        run.a->dv_type2 = 1;
        run.a->video_codec = 3;
        run.a->audio_codec = -2;
        run.a->output_directory = "D:\\Video\\Tapes 2024";
        run.a->scene_name = "wedding";
        run.a->preroll = 25;
        run.a->disk_warning = odd;
        run.a->scene_detection = true;
    }

    const std::int32_t one = 1, three = 3, minus_two = -2, preroll = 25;
    const std::uint8_t on = 1;
    const struct {
        const char* name;
        DWORD type;
        std::string bytes;
    } expected[] = {
        {"DV2", REG_DWORD, bytes_of(&one, 4)},
        {"VideoCodec", REG_DWORD, bytes_of(&three, 4)},
        {"AudioCodec", REG_DWORD, bytes_of(&minus_two, 4)},
        // A text is written without its terminating zero; the registry, as NT always has,
        // counts the zero in when one follows the bytes in memory, as it does a string's.
        {"OutputDirectory", REG_SZ, std::string("D:\\Video\\Tapes 2024", 20)},
        {"DefaultScene", REG_SZ, std::string("wedding", 8)},
        {"Preroll", REG_DWORD, bytes_of(&preroll, 4)},
        {"DiskspaceWarning", REG_BINARY, bytes_of(&odd, 8)},
        {"SceneDetection", REG_BINARY, bytes_of(&on, 1)},
    };
    for (const auto& e : expected) {
        const Stored s = stored(HKEY_CURRENT_USER, e.name);
        EXPECT_EQ(s.type, e.type) << e.name;
        EXPECT_EQ(s.bytes, e.bytes) << e.name;
    }

    AppLife again(HKEY_CURRENT_USER);
    EXPECT_EQ(again.a->dv_type2, 1);
    EXPECT_EQ(again.a->video_codec, 3);
    EXPECT_EQ(again.a->audio_codec, -2);
    EXPECT_EQ(again.a->output_directory, "D:\\Video\\Tapes 2024");
    EXPECT_EQ(again.a->scene_name, "wedding");
    EXPECT_EQ(again.a->preroll, 25);
    EXPECT_EQ(std::memcmp(&again.a->disk_warning, &odd, sizeof odd), 0);
    EXPECT_TRUE(again.a->scene_detection);
}

TEST(RegistrySettings, ValuesTheBindingCannotTakeKeepTheirDefaults) {
    ScratchKey root;
    const std::string long_text(600, 'x');
    store(root.key, "OutputDirectory", REG_SZ, long_text.c_str(), 601);
    const std::uint8_t off = 0;
    store(root.key, "SceneDetection", REG_BINARY, &off, 1);
    const char eight[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    store(root.key, "Preroll", REG_BINARY, eight, 8);     // larger than the field
    store(root.key, "DefaultScene", REG_SZ, "tapes", 4);  // no terminating zero
    const std::uint16_t two_bytes = 7;  // type and size are not checked, only the size read
    store(root.key, "DV2", REG_DWORD, &two_bytes, 2);

    AppLife run(root.key);
    EXPECT_EQ(run.a->output_directory, run.system.videos);
    EXPECT_FALSE(run.a->scene_detection);
    EXPECT_EQ(run.a->preroll, 0);
    EXPECT_EQ(run.a->scene_name, "tape");
    EXPECT_EQ(run.a->dv_type2, 7);
}

TEST(RegistrySettings, TheStoreAnswersWithTheRegistrysOwnResults) {
    ScratchKey root;
    WinSettingsStore settings(root.key);
    StoreKey key = nullptr;
    ASSERT_EQ(settings.create_key("a\\b", &key), S_OK);
    ASSERT_NE(key, nullptr);
    // Exactly the bytes given: nothing of what follows them, and no zero added.
    EXPECT_EQ(settings.set_value(key, "T", RegType::sz, "abcdefXYZ", 6), S_OK);

    char buffer[16] = {};
    std::uint32_t size = 4;
    EXPECT_EQ(settings.query_value(key, "T", buffer, &size), STORE_E_MORE_DATA);
    EXPECT_EQ(size, 6u) << "the size the value needs";
    size = sizeof buffer;
    EXPECT_EQ(settings.query_value(key, "T", buffer, &size), S_OK);
    EXPECT_EQ(std::string(buffer, size), "abcdef");
    size = sizeof buffer;
    EXPECT_EQ(settings.query_value(key, "missing", buffer, &size), STORE_E_NOT_FOUND);
    settings.close_key(key);

    // Written through the store, seen by the registry under the root it was given.
    HKEY check = nullptr;
    EXPECT_EQ(RegOpenKeyExA(root.key, "a\\b", 0, KEY_READ, &check), ERROR_SUCCESS);
    RegCloseKey(check);
}

TEST(RegistrySettings, AKeyThatCannotBeOpenedFailsTheBindingWithTheRegistrysResult) {
    ScratchKey root;
    HKEY closed = nullptr;
    ASSERT_EQ(RegOpenKeyExA(HKEY_CURRENT_USER, root.path.c_str(), 0, KEY_ALL_ACCESS, &closed),
              ERROR_SUCCESS);
    RegCloseKey(closed);  // a handle no longer valid

    FakeDialogHost host;
    FakeSystem system;
    WinSettingsStore settings(closed);
    FakeMediaFactory media;
    CapPlatform platform{host, system, settings, media};
    ScopedInstance scoped{platform};
    try {
        CapApp app(platform);
        ADD_FAILURE() << "the binding did not fail";
    } catch (ComError* e) {
        EXPECT_EQ(e->code, ERR_READ_REGISTRY);
        EXPECT_EQ(e->hr, hresult_from_win32(ERROR_INVALID_HANDLE));
        delete e;
    }
}
