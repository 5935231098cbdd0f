#pragma once

#include <QByteArray>
#include <QtGlobal>

/// As a sum of int is where it leaves its range.
inline int wrapped(long long value)
{
    return static_cast<int>(static_cast<unsigned>(value));
}

/// What is a blank around a number, of the first 256 letters.
inline bool isBlank(char letter)
{
    const auto code = static_cast<unsigned char>(letter);
    return code == ' ' || (code >= 9 && code <= 13) || code == 0x85 || code == 0xA0;
}

/// The integer that a Latin-1 text stands for, told apart from the program's way: blanks around
/// it, an optional sign, decimal digits; 0 for every other text and beyond the range of int.
inline int plainNumber(const QByteArray& text)
{
    int begin = 0;
    int end = text.size();
    while (begin < end && isBlank(text[begin]))
        ++begin;
    while (end > begin && isBlank(text[end - 1]))
        --end;
    const bool negative = begin < end && text[begin] == '-';
    if (begin < end && (text[begin] == '-' || text[begin] == '+'))
        ++begin;
    constexpr long long kBeyond = 1LL << 40;
    long long value = 0;
    for (int i = begin; i < end; ++i) {
        if (text[i] < '0' || text[i] > '9')
            return 0;
        value = qMin(kBeyond, value * 10 + (text[i] - '0'));
    }
    value = negative ? -value : value;
    return value < -2147483648LL || value > 2147483647LL ? 0 : static_cast<int>(value);
}
