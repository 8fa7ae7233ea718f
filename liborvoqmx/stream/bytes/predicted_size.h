// Predicts a progressive stream before it exists: its bit rate, size and picture.
#pragma once

#include <cstdint>
#include <string>

namespace LibOrvoQMX {

// The bit rate that a profile key promises, in bit/s; -1 if the key names none. "vb" and "ab" are
// in kbit/s. The audio rate counts twice, as a safety margin.
int PromisedBitRate(const std::string& profileKey);

// The number of bytes for `seconds` at this bit rate; 0 if either is unknown.
int64_t PredictedSize(int bitRate, float seconds);

// The second of the film at this byte; -1 if the bit rate is unknown.
int SecondOfByte(int64_t offset, int bitRate);

// WIDTHxHEIGHT for "hd480" and "hd720", in the film's shape, with the width rounded up to a
// multiple of 10. Returns any other request unchanged.
std::string ScaledSize(const std::string& requested, float ratio);

}  // namespace LibOrvoQMX
