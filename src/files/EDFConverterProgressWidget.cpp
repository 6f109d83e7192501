#include "files/EDFConverterProgressWidget.h"

#include "base/ConnectionHelper.h"
#include "files/FileConversion.h"

#include <QCoreApplication>
#include <QEvent>
#include <QFileInfo>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTime>
#include <QVBoxLayout>

namespace {

constexpr int kLeastWidth = 360;

QString translated(const char *text)
{
    return QCoreApplication::translate("Generic", text);
}

} // namespace

EDFConverterProgressWidget::EDFConverterProgressWidget(QWidget *parent)
    : QWidget(parent)
    , m_connections(std::make_unique<ConnectionHelper>())
    , m_title(new QLabel)
    , m_file(new QLabel)
    , m_state(new QLabel)
    , m_bar(new QProgressBar)
    , m_cancel(new QPushButton)
{
    QFont bold = m_title->font();
    bold.setBold(true);
    m_title->setFont(bold);
    m_state->setWordWrap(true);
    m_bar->setRange(0, 100);
    auto *lower = new QHBoxLayout;
    lower->addWidget(m_state, 1);
    lower->addWidget(m_cancel);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_title);
    layout->addWidget(m_file);
    layout->addWidget(m_bar);
    layout->addLayout(lower);
    setMinimumWidth(kLeastWidth);
    m_bar->setObjectName(QStringLiteral("bar"));
    m_state->setObjectName(QStringLiteral("state"));
    m_file->setObjectName(QStringLiteral("file"));
    m_cancel->setObjectName(QStringLiteral("cancel"));
    m_cancel->setEnabled(false);
    translate();
}

EDFConverterProgressWidget::~EDFConverterProgressWidget() = default;

void EDFConverterProgressWidget::setConversion(FileConversion *conversion)
{
    m_connections->clear();
    m_running = false;
    m_cancel->setEnabled(false);
    if (conversion == nullptr) {
        return;
    }
    *m_connections << connect(conversion, &FileConversion::started, this, &EDFConverterProgressWidget::begin)
                   << connect(conversion, &FileConversion::progress, this, &EDFConverterProgressWidget::showProgress)
                   << connect(conversion, &FileConversion::finished, this, &EDFConverterProgressWidget::end)
                   // Its own thread is busy converting.
                   << connect(m_cancel, &QPushButton::clicked, conversion, &FileConversion::cancel,
                              Qt::DirectConnection);
}

void EDFConverterProgressWidget::begin(const QString &target)
{
    m_running = true;
    m_clock.start();
    m_percent = 0;
    m_bar->setValue(0);
    m_file->setText(QFileInfo(target).fileName());
    m_file->setToolTip(target);
    m_state->clear();
    m_cancel->setEnabled(true);
}

void EDFConverterProgressWidget::showProgress(int percent)
{
    m_percent = percent;
    m_bar->setValue(percent);
    m_state->setText(timeLeft());
}

QString EDFConverterProgressWidget::timeLeft() const
{
    if (m_percent < 1) {
        return QString();
    }
    const qint64 seconds = m_clock.elapsed() * (100 - m_percent) / m_percent / 1000;
    const QTime time = QTime(0, 0).addSecs(static_cast<int>(seconds % 86400));
    return translated(QT_TRANSLATE_NOOP("Generic", "Time left: %1"))
        .arg(time.toString(seconds < 3600 ? QStringLiteral("mm:ss") : QStringLiteral("hh:mm:ss")));
}

void EDFConverterProgressWidget::end(bool done, const QString &error)
{
    m_running = false;
    m_cancel->setEnabled(false);
    m_bar->setValue(done ? 100 : m_percent);
    m_state->setText(done ? translated(QT_TRANSLATE_NOOP("Generic", "Done")) : error);
}

void EDFConverterProgressWidget::translate()
{
    setWindowTitle(translated(QT_TRANSLATE_NOOP("Generic", "EDF conversion")));
    m_title->setText(windowTitle());
    m_cancel->setText(translated(QT_TRANSLATE_NOOP("Generic", "Cancel")));
    if (m_running) {
        m_state->setText(timeLeft());
    }
}

void EDFConverterProgressWidget::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::LanguageChange) {
        translate();
    }
    QWidget::changeEvent(event);
}
