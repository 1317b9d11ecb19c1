// SPDX-License-Identifier: MIT
#include "bussets/adapter_set.h"
#include "common/number_argument.h"
#include "common/program.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QLoggingCategory>

#include <optional>

namespace {

constexpr const char *description = R"(Keeps a set of adapters in a file, with their order and roles.

Commands:
  list                    print the set
  add [DESCRIPTION]       add the adapter of --adapter
  remove ID               take an adapter out
  up ID, down ID          move an adapter by one
  primary ID              make an adapter the primary one
  active ID, inactive ID  let an adapter take part in the next connection, or not

Every command but list writes the file, as a whole or not at all. A file that is damaged or that another
version wrote is left as it is.

Exit status:
  0       done
  1       the file could not be read or written, or the command could not be done
  2       wrong arguments)";

using buslink::AdapterSet;

struct Command
{
    const char *word;
    int arguments; // how many it takes at most; those on an adapter need as many
    QString (*act)(AdapterSet &set, unsigned short id);
};

constexpr Command commands[] = {
    {"list", 0, nullptr},
    {"add", 1, nullptr},
    {"remove", 1, [](AdapterSet &set, unsigned short id) { return set.remove(id); }},
    {"up", 1, [](AdapterSet &set, unsigned short id) { return set.move(id, MultiCanAdapterHandler::Up); }},
    {"down", 1, [](AdapterSet &set, unsigned short id) { return set.move(id, MultiCanAdapterHandler::Down); }},
    {"primary", 1, [](AdapterSet &set, unsigned short id) { return set.makePrimary(id); }},
    {"active", 1, [](AdapterSet &set, unsigned short id) { return set.setActive(id, true); }},
    {"inactive", 1, [](AdapterSet &set, unsigned short id) { return set.setActive(id, false); }},
};

QString actOnAdapter(const Command &command, AdapterSet &set, const QString &argument)
{
    const std::optional<quint64> id = buslink::numberBetween(argument, 1, 65535);
    return id ? command.act(set, static_cast<unsigned short>(*id)) : buslink::noAdapter(argument);
}

const Command *commandOf(const QStringList &words)
{
    for (const Command &command : commands) {
        const bool fits = command.act ? words.size() == 1 + command.arguments : words.size() <= 1 + command.arguments;
        if (words.value(0) == QLatin1String(command.word) && fits)
            return &command;
    }
    return nullptr;
}

int run(const QString &path, const Command &command, const QString &argument, buslink::AdapterArgument adapter)
{
    const buslink::SetFile file = buslink::loadSet(path);
    AdapterSet set;
    const QString unreadable = file.error.isEmpty() ? set.restore(file.adapters) : file.error;
    if (!unreadable.isEmpty()) {
        buslink::complain(QStringLiteral("%1: %2").arg(path, unreadable));
        return buslink::ExitFailed;
    }
    const QLatin1String word(command.word);
    if (word == QLatin1String("list"))
        return buslink::print(set.lines().join(QLatin1Char('\n')) + QLatin1Char('\n')) ? buslink::ExitDone
                                                                                       : buslink::ExitFailed;
    QString error = command.act ? actOnAdapter(command, set, argument) : set.add(std::move(adapter), argument);
    if (error.isEmpty()) {
        error = buslink::saveSet(path, set.saved());
        if (!error.isEmpty())
            error.prepend(path + QStringLiteral(": "));
    }
    if (error.isEmpty())
        return buslink::ExitDone;
    buslink::complain(error);
    return buslink::ExitFailed;
}

} // namespace

int main(int argc, char **argv)
{
    buslink::prepareProcess();
    QCoreApplication app(argc, argv);
    buslink::nameApplication(QStringLiteral("bussets"));
    // The stored form writes rates as Qt writes types without a stream form, and Qt warns of that.
    QLoggingCategory::setFilterRules(QStringLiteral("default.warning=false"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(description));
    const buslink::AdapterOptions adapter;
    adapter.addTo(parser);
    const QCommandLineOption file(QStringLiteral("file"), QStringLiteral("File of the set. Default: adapters.bussets."),
                                  QStringLiteral("path"), QStringLiteral("adapters.bussets"));
    parser.addOption(file);
    parser.addPositionalArgument(QStringLiteral("command"), QStringLiteral("What to do, see above."),
                                 QStringLiteral("command [argument]"));
    if (!buslink::parseArguments(parser, 2))
        return buslink::ExitUsage;
    const QStringList words = parser.positionalArguments();
    const Command *const command = commandOf(words);
    if (!command) {
        buslink::complain(QStringLiteral("no command: '%1'").arg(words.join(QLatin1Char(' '))));
        return buslink::ExitUsage;
    }
    buslink::AdapterArgument argument = adapter.create(parser);
    if (!argument.adapter) {
        buslink::complain(argument.error);
        return buslink::ExitUsage;
    }
    return run(parser.value(file), *command, words.value(1), std::move(argument));
}
