#include "app/globals.h"

CapPlatform* instance = nullptr;
CapApp* app = nullptr;
WindowHandle main_window = nullptr;
unsigned transport_timer = 0;
