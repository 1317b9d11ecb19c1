// SPDX-License-Identifier: MIT
#include "backends/socketcan/fake_ip.h"

#include <utility>

namespace {

FakeIp *standIn = nullptr;

} // namespace

// The linker sends the library's calls here.
// NOLINTBEGIN(bugprone-reserved-identifier)
QString realOutputOfIp(const QStringList &arguments) __asm__("__real__ZN7buslink10outputOfIpERK11QStringList");
QString wrappedOutputOfIp(const QStringList &arguments) __asm__("__wrap__ZN7buslink10outputOfIpERK11QStringList");
// NOLINTEND(bugprone-reserved-identifier)

QString wrappedOutputOfIp(const QStringList &arguments)
{
    return standIn != nullptr ? standIn->answer(arguments) : realOutputOfIp(arguments);
}

FakeIp::FakeIp(QMap<QString, QString> answers) : mAnswers(std::move(answers))
{
    standIn = this;
}

FakeIp::~FakeIp()
{
    standIn = nullptr;
}

QString FakeIp::answer(const QStringList &arguments)
{
    mAsked.append(arguments.join(QLatin1Char(' ')));
    return mAnswers.value(mAsked.constLast());
}
