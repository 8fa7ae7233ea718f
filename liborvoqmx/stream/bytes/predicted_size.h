// What is known of a progressive stream before it exists: its rate, its size, its picture.
#pragma once

#include <cstdint>
#include <string>

namespace LibOrvoQMX {

// The rate that a profile key promises, in bit/s; -1 when it names none. "vb" and "ab" are in
// kbit/s, and the audio's counts twice, to be on the safe side.
int PromisedBitRate(const std::string& profileKey);

// The bytes of so many seconds at that rate; 0 when either is unknown.
int64_t PredictedSize(int bitRate, float seconds);

// The second at which that byte stands; -1 when the rate is unknown.
int SecondOfByte(int64_t offset, int bitRate);

// "hd480" and "hd720" as WIDTHxHEIGHT in the film's shape, the width going up to the next multiple
// of 10; any other request as it is.
std::string ScaledSize(const std::string& requested, float ratio);

}  // namespace LibOrvoQMX
