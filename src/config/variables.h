// Variables in configuration values, written ${name}, replaced before any
// object sees the value. Only "$" is special; "$$" writes one "$"; a text
// that ends inside a variable keeps it as plain text.
#ifndef ZYR_CONFIG_VARIABLES_H
#define ZYR_CONFIG_VARIABLES_H

#include "base/string.h"
#include "zyrlog/result.h"

// An unknown name gives ZYR_E_INVALID_DATA; a failing source its failure.
ZyrResult ZyrCfgExpandVariables(const ZyrBasString& text, ZyrBasString& out);

// Appends the value of one variable; `known` tells whether the name is one.
// Names compare exactly: ${PID} is unknown.
ZyrResult ZyrCfgResolveVariable(const char16_t* name, std::size_t length, ZyrBasString& target,
                                bool* known);

#endif
