// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <QtCore/QCommandLineOption>
#include <QtCore/QString>

#include <memory>
#include <string>

namespace buslink {

/// What the `--adapter` argument of the programs stands for.
struct AdapterArgument
{
    std::unique_ptr<AbstractCanAdapter> adapter; ///< Configured and not open; null if `error` tells why.
    std::string name;                            ///< Short, without white space, for lines of a log.
    QString error;                               ///< Empty where there is an adapter.
};

/// Creates the adapter that the argument names.
AdapterArgument createAdapter(const QString &argument);

/// The option itself, `virtual` where it is not given.
QCommandLineOption adapterOption();

} // namespace buslink
