// The builder: turns a parsed document into living objects, inside the
// manager's lock and the tree lock. Every document is merged into the
// manager's active document section by section; only sections that differ
// touch any object, and nothing is torn down.
#ifndef ZYR_ENGINE_BUILDER_H
#define ZYR_ENGINE_BUILDER_H

#include "base/string.h"
#include "zyrlog/result.h"

class ZyrCfgDocument;
class ZyrLogManager;

// Merges `document` into the manager's active document, then builds the
// changed layouts, appenders and loggers in that order. The first failure
// ends the build; what was built before it stays.
ZyrResult ZyrCfgBuild(ZyrLogManager& manager, ZyrCfgDocument& active, const ZyrCfgDocument& document,
                      const ZyrBasString& logFolder);

#endif
