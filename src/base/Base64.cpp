// Base64 text with optional 76-character lines.
#include <array>

#include "libfilter/SystemBase.h"

namespace SystemBase {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr int kLineLength = 76;

// Every byte outside the alphabet, "=" included, decodes as 0: decoding never fails.
constexpr std::array<unsigned char, 256> MakeDecodeTable() {
    std::array<unsigned char, 256> table{};
    for (unsigned i = 0; i < 64; ++i)
        table[static_cast<unsigned char>(kAlphabet[i])] = i;
    return table;
}
constexpr std::array<unsigned char, 256> kDecode = MakeDecodeTable();

unsigned DecodeChar(char c) {
    return kDecode[static_cast<unsigned char>(c)];
}

void AppendGroup(std::string& text, unsigned bits, int characters) {
    for (int i = 0; i < characters; ++i)
        text.push_back(kAlphabet[(bits >> (18 - 6 * i)) & 0x3F]);
}

}  // namespace

std::string ZBase64::Encode(const unsigned char* data, int length, bool lineBreaks) {
    std::string text;
    if (data == nullptr || length <= 0) return text;
    const auto bytes = static_cast<size_t>(length);
    text.reserve((bytes + 2) / 3 * 4 + (lineBreaks ? bytes / 57 * 2 : 0));
    int i = 0;
    int lineUsed = 0;
    for (; i + 3 <= length; i += 3) {
        AppendGroup(text, (data[i] << 16) | (data[i + 1] << 8) | data[i + 2], 4);
        if (!lineBreaks) continue;
        lineUsed += 4;
        if (lineUsed == kLineLength) {
            text += "\r\n";
            lineUsed = 0;
        }
    }
    // The padded tail never starts a new line.
    if (length - i == 1) {
        AppendGroup(text, data[i] << 16, 2);
        text += "==";
    } else if (length - i == 2) {
        AppendGroup(text, (data[i] << 16) | (data[i + 1] << 8), 3);
        text += "=";
    }
    return text;
}

std::string ZBase64::Decode(const char* text, int length, std::string& out) {
    if (text == nullptr) return out;
    int i = 0;
    while (i < length) {
        if (text[i] == '\n' || text[i] == '\r') {
            ++i;
            continue;
        }
        // A group cut short by `length` reads its missing characters as padding.
        const int available = length - i < 4 ? length - i : 4;
        if (available < 2) break;
        char group[4] = {'=', '=', '=', '='};
        for (int k = 0; k < available; ++k)
            group[k] = text[i + k];
        const unsigned bits = (DecodeChar(group[0]) << 18) | (DecodeChar(group[1]) << 12) |
                              (DecodeChar(group[2]) << 6) | DecodeChar(group[3]);
        out.push_back(static_cast<char>(bits >> 16));
        if (group[2] != '=') {
            out.push_back(static_cast<char>(bits >> 8));
            if (group[3] != '=') out.push_back(static_cast<char>(bits));
        }
        i += 4;
    }
    return out;
}

}  // namespace SystemBase
