// SPDX-License-Identifier: MIT
#pragma once

namespace buslink {

/// Makes the records that options carry known to the meta-type system, with their stream operators.
/// Repeated calls change nothing. *Thread:* any.
void registerOptionMetaTypes();

} // namespace buslink
