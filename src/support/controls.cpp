#include "support/controls.h"

#include <algorithm>

namespace {

bool isControl(char c)
{
    const auto uByte = static_cast<unsigned char>(c);
    return uByte < 0x20 || uByte == 0x7f;
}

}  // namespace

bool hasControlCharacter(std::string_view sText)
{
    return std::any_of(sText.begin(), sText.end(), isControl);
}

std::string printable(std::string_view sText)
{
    std::string sResult(sText);
    std::replace_if(sResult.begin(), sResult.end(), isControl, '?');
    return sResult;
}
