#pragma once

#include <string>
#include <string_view>
#include <vector>

/// The signature packets of a text in the form of `gpg --armor --detach-sign` (RFC 4880, section 6),
/// each as it stands, header included. librpm itself reads only keys from that form.
///
/// Several signatures may stand in one block, and several blocks behind each other; text around them
/// does not count, nor does a block that is cut or damaged, nor the rest of one behind a packet that
/// cannot be measured. The check sum of a block is not looked at.
///
/// @return at most `uMost` packets, of any tag and any contents.
std::vector<std::string> armouredPackets(std::string_view sText, std::size_t uMost);
