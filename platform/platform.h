// The platform services of one process, handed to the application object and reached
// by the dialog framework through the process-wide `instance`.
#pragma once

#include "platform/dialog_host.h"
#include "platform/media.h"
#include "platform/settings_store.h"
#include "platform/system.h"

struct CapPlatform {
    DialogHost& dialogs;
    SystemServices& system;
    SettingsStore& settings;
    media::MediaFactory& media;
};
