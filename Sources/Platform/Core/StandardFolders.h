#pragma once

#include <filesystem>

// Where the program keeps its files, by the XDG Base Directory Specification. Nothing here is made or read.
namespace panoveer {

// The user's home folder; "/tmp" where there is none.
std::filesystem::path homeFolder();

// $XDG_DATA_HOME/Panoveer Studio, else ~/.local/share/Panoveer Studio: what the program keeps for the user.
std::filesystem::path applicationSupportFolder();

// $XDG_STATE_HOME/Panoveer Studio/panoveer.log, else below ~/.local/state. Older entries are in panoveer.1.log,
// panoveer.2.log, … beside it.
std::filesystem::path logFile();

} // namespace panoveer
