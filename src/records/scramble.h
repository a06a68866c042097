// Scrambling of message text: a marked message reaches the appenders as an
// opaque token, "a" followed by base64 of (key index, "a" XOR key[0], the
// UTF-8 text XOR the key repeated). The rest of the line stays readable.
// Done on the delivering thread, just before the appenders see the event.
#ifndef ZYR_RECORDS_SCRAMBLE_H
#define ZYR_RECORDS_SCRAMBLE_H

#include <cstddef>
#include <cstdint>

#include "base/string.h"
#include "zyrlog/result.h"

struct ZyrLogEvent;

extern const std::uint8_t kZyrScrambleKeys[16][64];

// Mode 0 or an empty message: nothing. Otherwise the message is replaced by
// its scrambled form and a mode other than 2 becomes 1. On failure the
// event keeps its plain text, and the caller must not deliver it.
ZyrResult ZyrLogScrambleEvent(ZyrLogEvent& event);
// Appends the scrambled form of the text, with a key picked at random.
ZyrResult ZyrLogScrambleText(ZyrBasString& out, const char16_t* text, std::size_t length);
// The same with a given key index (0 to 15).
ZyrResult ZyrLogScrambleTextWithKey(ZyrBasString& out, const char16_t* text, std::size_t length,
                                    unsigned index);
// Byte by byte with the key repeated; a key size of 0 is a broken contract.
void ZyrLogXorWithKey(std::uint8_t* data, std::size_t size, const std::uint8_t* key,
                      std::size_t keySize);
// Standard base64 with "=" padding and no line breaks.
ZyrResult ZyrLogBase64Append(ZyrBasString& out, const std::uint8_t* bytes, std::size_t size);

#endif
