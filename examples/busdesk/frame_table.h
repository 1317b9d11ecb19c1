// SPDX-License-Identifier: MIT
#pragma once

#include <QtWidgets/QTableView>

namespace buslink {

/// Letters of one width, for payloads.
QFont fixedFont();

/// Makes a table for frames: rows of one height, letters of one width, columns as wide as given in letters. The last
/// column takes the rest.
void prepareFrameTable(QTableView *table, std::initializer_list<int> letters);

} // namespace buslink
