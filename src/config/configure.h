#pragma once

#include "registry/registry_setting.h"

#include <span>

// The configure action: prepares the machine for the product's service and then clears its
// first-run marker. Returns whether the product's directories are secured. If they are not, nothing
// more is configured, and the product is uninstalled. Running out of memory ends the whole action
// there, by its exception, on purpose.
bool Configure();

// Delete or write each setting in order, one line of the log each, whether or not others fail.
void DeleteSettings(std::span<const RegistrySetting> settings);
void WriteSettings(std::span<const RegistrySetting> settings);
