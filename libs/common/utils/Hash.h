#pragma once
// 32-bit ids of names: MurmurHash2 (multiplier 0x5BD1E995, shift 24), byte-exact with
// the published algorithm so that ids agree with every tool that computes them.
//
// With a suffix, the id of `text` seeds a second pass over `suffix`; this is not the id
// of the concatenation. Command keys are built this way:
//   GenerateUIntIdFromString("GetRPCSingleton", nullptr, GenerateUIntIdFromString("Root"))
//   == GenerateUIntIdFromString("Root", "GetRPCSingleton") == 0x58EF814E
#include <cstddef>

// Null text gives 0.
unsigned int GenerateUIntIdFromString(const char* text, const char* suffix = nullptr, unsigned int seed = 0);
unsigned int GenerateUIntIdFromBuffer(const void* data, size_t length, unsigned int seed = 0);
