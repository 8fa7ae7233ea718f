// What the fuzz targets share. A target is a program that libFuzzer feeds with any bytes; it states
// what must hold for all of them. tests/fuzz/run starts the targets, each with ORVO_SYSROOT set to
// a new directory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fuzz {

// Ends the program with a stack trace if `holds` is false. libFuzzer then keeps the input.
void Demand(bool holds);

std::string TextOf(const uint8_t* data, size_t size);

// The parts of a text between the separators, `count` of them; missing ones are empty. The last one
// has the rest.
std::vector<std::string> Parts(const std::string& text, char separator, size_t count);

// The directory that the target has for itself.
std::string Root();

// Writes a file of the appliance, and makes its folders with this mode.
void WriteFile(const std::string& path, const std::string& content, unsigned folderMode = 0700);

}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
