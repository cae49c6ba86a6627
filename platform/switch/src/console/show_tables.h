#pragma once

#include <vector>

#include "console/table.h"
#include "core/session.h"

namespace kvx_switch {

/// One row for each leg.
Table channels_table(const std::vector<SessionInfo>& sessions);

/// One row for each pair of legs that name each other, or of which one names the other; the leg that comes first in
/// `sessions` is the row's first.
Table calls_table(const std::vector<SessionInfo>& sessions);

/// What is registered at this moment, by name.
Table codecs_table();
Table api_table();
Table modules_table();

}  // namespace kvx_switch
