#include "commands/ConversionRun.h"

#include "Interrupt.h"

#include <QEventLoop>
#include <QFileInfo>
#include <QThread>

namespace {

constexpr int kBarWidth = 40;

QString bar(int percent)
{
    const int filled = percent * kBarWidth / 100;
    return QStringLiteral("[%1%2] %3 %")
        .arg(QString(filled, QLatin1Char('#')), QString(kBarWidth - filled, QLatin1Char(' ')))
        .arg(percent);
}

} // namespace

Console::ExitStatus runConversion(FileConversion &conversion, const QString &target, const std::function<void()> &work)
{
    QThread worker;
    QEventLoop loop;
    Interrupt interrupt;
    QString error;
    QObject::connect(&interrupt, &Interrupt::interrupted, &conversion, &FileConversion::cancel, Qt::DirectConnection);
    QObject::connect(&conversion, &FileConversion::progress, &loop,
                     [](int percent) { Console::progress(bar(percent)); });
    QObject::connect(&conversion, &FileConversion::finished, &loop, [&](bool, const QString &sentence) {
        error = sentence;
        loop.quit();
    });
    QObject::connect(&worker, &QThread::started, &conversion, work);
    conversion.moveToThread(&worker);
    worker.start();
    loop.exec();
    worker.quit();
    worker.wait();
    Console::progress(QString());
    if (!error.isEmpty()) {
        Console::error(error);
        return Console::Failure;
    }
    if (!conversion.notice().isEmpty()) {
        Console::error(conversion.notice());
    }
    Console::print(QStringLiteral("%1: %2 bytes").arg(target).arg(QFileInfo(target).size()));
    return Console::Success;
}
