// The keys that the keypad test knows, and the crosses that the touchscreen test shows.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace station {

struct Key {
  std::uint8_t code;         // the high byte of the phone's key code
  std::uint16_t input_code;  // the keypad driver's own number for the key
  const char* name;          // the input system's name for that number
};

// In the phone's order.
constexpr std::array<Key, 13> KEYS = {{
    {0x3F, 0x92, "deletefile"},
    {0x80, 0x70, "macro"},
    {0x90, 0x6F, "delete"},
    {0x17, 0xB0, "edit"},
    {0x18, 0xAE, "exit"},
    {0x11, 0x74, "power"},
    {0x12, 0x83, "undo"},
    {0x2C, 0x84, "front"},
    {0x2D, 0x85, "copy"},
    {0x2E, 0x86, "open"},
    {0x2F, 0x87, "paste"},
    {0x3D, 0xA2, "eject"},
    {0x85, 0xDF, "cancel"},
}};

// The key code that stands for a key outside the table.
constexpr std::uint8_t UNKNOWN_KEY = 0xFF;

// The low byte of a key code that only repeats the last key: no key has come since.
constexpr std::uint8_t REMEMBERED_KEY = 1;

// "power", by the high byte of a key code.
std::string KeyName(std::uint32_t key_code);

// The places of the crosses whose bits are set.
std::vector<std::string> CrossNames(std::uint32_t crosses);

}  // namespace station
