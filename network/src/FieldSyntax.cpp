#include "FieldSyntax_p.h"

#include <QByteArray>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace orv {

namespace {

// RFC 9110, 5.6.2
constexpr bool isTokenCharacter(unsigned char c)
{
    constexpr std::string_view others = "!#$%&'*+-.^_`|~";
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           others.find(static_cast<char>(c)) != std::string_view::npos;
}

constexpr auto tokenCharacters = [] {
    std::array<bool, 256> table{};
    for (std::size_t c = 0; c < table.size(); ++c)
        table.at(c) = isTokenCharacter(static_cast<unsigned char>(c));
    return table;
}();

} // namespace

bool isToken(const QByteArray& text)
{
    return !text.isEmpty() && std::all_of(text.begin(), text.end(), [](char c) {
        return tokenCharacters[static_cast<unsigned char>(c)];
    });
}

bool isFieldValue(const QByteArray& text)
{
    return std::none_of(text.begin(), text.end(), [](char c) {
        const auto code = static_cast<unsigned char>(c);
        return (code < 0x20 && c != '\t') || code == 0x7f;
    });
}

} // namespace orv
