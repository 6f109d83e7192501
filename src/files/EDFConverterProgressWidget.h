#pragma once

#include "common/BPExport.h"

#include <QElapsedTimer>
#include <QWidget>

#include <memory>

class ConnectionHelper;
class FileConversion;
class QLabel;
class QProgressBar;
class QPushButton;

/// Shows how far a conversion is: title, file, percentage, time left, and a button that cancels it. Lives on the thread
/// of the user interface; the conversion may work on another.
class BIOPROCESSING_EXPORT EDFConverterProgressWidget : public QWidget
{
    Q_OBJECT
public:
    explicit EDFConverterProgressWidget(QWidget *parent = nullptr);
    ~EDFConverterProgressWidget() override;

    /// Follows this conversion, and no other any more. Borrowed; null follows none, and so does a deleted one.
    void setConversion(FileConversion *conversion);

protected:
    void changeEvent(QEvent *event) override;

private:
    void begin(const QString &target);
    void showProgress(int percent);
    void end(bool done, const QString &error);
    void translate();
    QString timeLeft() const;

    std::unique_ptr<ConnectionHelper> m_connections;
    QLabel *m_title;
    QLabel *m_file;
    QLabel *m_state;
    QProgressBar *m_bar;
    QPushButton *m_cancel;
    QElapsedTimer m_clock;
    int m_percent = 0;
    bool m_running = false;
};
