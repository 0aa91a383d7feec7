// Names of files: their pieces, and forms of them that are safe to use.
#pragma once

#include <string>

namespace trevix {

// Everything before the last "."; the whole name when it has none.
std::string BaseName(const std::string& name);

// Everything after the last "." (without it); the whole name when it has none.
std::string Extension(const std::string& name);

// Replaces each of : / \ > < | ? * with one blank. Meant for names made of a logon name; what comes
// from a message goes through SafeFileComponent.
void MakeFileNameSafe(std::string& text);

// One path component for a file that is to hold the attachment `name`, whatever that name is: never
// empty, "." or "..", no separators of either kind, control characters or double quotes, no blank
// at either end, valid UTF-8 of at most 200 bytes. The extension survives the cut unless it is very
// long itself. Two names may give the same component.
std::string SafeFileComponent(const std::string& name);

}  // namespace trevix
