// A whole platform of fakes, installed as the process's `instance` for one test.
#pragma once

#include "app/globals.h"
#include "tests/fakes/fake_dialog_host.h"
#include "tests/fakes/fake_system.h"
#include "ui/capdlg.h"

class SettingsStore;
namespace media {
class MediaFactory;
}

// Opens `dialog` on the fake host as do_modal would and returns its window.
inline WindowHandle open_dialog(FakeDialogHost& host, CapDialog& dialog, int template_id,
                                WindowHandle parent = nullptr) {
    return host.open(&CapDialog::dialog_proc, reinterpret_cast<LParam>(&dialog), template_id,
                     parent);
}

// Installs `platform` as `instance` for the life of this object.
class ScopedInstance {
  public:
    explicit ScopedInstance(CapPlatform& platform) : previous(instance) { instance = &platform; }
    ~ScopedInstance() { instance = previous; }
    ScopedInstance(const ScopedInstance&) = delete;
    ScopedInstance& operator=(const ScopedInstance&) = delete;

  private:
    CapPlatform* previous;
};
