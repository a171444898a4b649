#pragma once

#include "Platform/Core/URL.h"

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

// What a fuzzer is made of. Each source of this folder but FuzzMain.cpp is one: it says what bytes to begin with and
// what to do with any bytes. FuzzMain.cpp makes a program of it, with libFuzzer where the compiler has it, else with
// mutations of its own.
namespace panoveer::test {

using Bytes = std::vector<std::uint8_t>;

// Well-formed input of every kind that the code under test tells apart.
std::vector<Bytes> fuzzSeeds();

// Whatever it throws beyond the errors that the code promises, ends the program, as a broken promise does.
void fuzzOne(std::span<const std::uint8_t> input);

// A promise is broken: says which, and ends the program.
void require(bool kept, std::string_view promise);

// A file in memory with these bytes, the same file each time.
URL memoryFile(std::span<const std::uint8_t> bytes);

} // namespace panoveer::test
