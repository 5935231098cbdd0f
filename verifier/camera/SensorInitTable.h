#pragma once

#include <cstddef>

#include <QtGlobal>

/// One register write for the sensor. Four bytes in memory: address (host order), value,
/// a zero pad byte.
struct SensorRegister
{
    quint16 address;
    quint8 value;
    quint8 pad = 0;
};
static_assert(sizeof(SensorRegister) == 4, "register records are packed into four bytes");

/// Address of the record that ends a register table.
constexpr quint16 kTableTerminator = 0xFFFF;

/// No table is searched for its terminator beyond this many records.
constexpr std::size_t kLongestTable = 1024;

/// Register writes of the built-in table, and its length with the terminator.
constexpr std::size_t kInitRegisterCount = 494;
constexpr std::size_t kInitTableLength = kInitRegisterCount + 1;

/// Start-up programme of the sensor: software reset, then 640 x 480 YUYV cut out of the
/// middle of the field with manual exposure, gain and white balance. Order matters (the
/// reset comes first, some registers are written twice). Ends with {0xFFFF, 0xFF}.
extern const SensorRegister ov5642_vga_crop_init_reg[kInitTableLength];

/// Records before the terminator among the first `length` (at most kLongestTable) of a
/// table; 0 when no terminator is found there.
std::size_t countBeforeTerminator(const SensorRegister* table, std::size_t length);
