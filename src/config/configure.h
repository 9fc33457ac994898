#pragma once

#include "registry/registry_setting.h"

#include <span>

// The configure action: prepares the machine for the product's service, and clears its first-run
// marker in the end. Returns whether the product's directories are secured. If they are not,
// nothing more is configured, and the product is uninstalled. A want of memory ends the whole
// action where it is, by its exception: meant.
bool Configure();

// Delete or write each setting in order, one line of the log each, whatever becomes of the others.
void DeleteSettings(std::span<const RegistrySetting> settings);
void WriteSettings(std::span<const RegistrySetting> settings);
