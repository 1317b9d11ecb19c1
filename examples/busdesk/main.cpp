// SPDX-License-Identifier: MIT
#include "busdesk/adapter_panel.h"
#include "busdesk/desk_window.h"
#include "common/adapter_argument.h"
#include "common/program.h"

#include <QtCore/QCommandLineParser>
#include <QtWidgets/QApplication>

#include <algorithm>
#include <memory>
#include <string_view>

namespace {

constexpr const char *description = R"(A desk to look at CAN buses: adapters, frames and what is sent.

Without a file it begins with one adapter on the virtual bus, which needs no hardware: Connect opens it.

Exit status:
  0       the window was closed
  2       wrong arguments)";

// Help and version are told where there is no screen as well, and so is what is mistaken for help.
bool needsScreen(int argc, char **argv)
{
    return std::none_of(argv + 1, argv + argc, [](const char *argument) {
        const std::string_view text(argument);
        return text == "-h" || text.starts_with("--help") || text == "-v" || text == "--version";
    });
}

} // namespace

int main(int argc, char **argv)
{
    buslink::prepareProcess();
    const std::unique_ptr<QCoreApplication> app(needsScreen(argc, argv) ? new QApplication(argc, argv)
                                                                        : new QCoreApplication(argc, argv));
    buslink::nameApplication(QStringLiteral("busdesk"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(description));
    parser.addPositionalArgument(QStringLiteral("set"), QStringLiteral("A file of adapters, as bussets writes it."),
                                 QStringLiteral("[set]"));
    if (!buslink::parseArguments(parser, 1))
        return buslink::ExitUsage;
    buslink::DeskWindow window;
    if (parser.positionalArguments().isEmpty())
        window.desk().add(buslink::createAdapter(QStringLiteral("virtual")), QString());
    else
        window.adapterPanel()->load(parser.positionalArguments().constFirst());
    window.show();
    return QApplication::exec();
}
