#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

class LiveClassifier;
class OfflineDataSource;

/// Learns to tell mental states from the state files of a profile, and finds the current one in the device's stream.
///
/// Takes the Portal pair: amplitude spectra of the EEG channels, 4 to 30 Hz, windows of 2 s every 0.5 s. The trained
/// model is kept beside the state files ("model.json") and read again with the profile.
class TrainingSide : public QObject
{
    Q_OBJECT
public:
    explicit TrainingSide(QObject *parent = nullptr);
    ~TrainingSide() override;

    /// Takes the model of a profile, if it has one; ends a training. An empty folder has none.
    void open(const QString &folder);
    /// @param folder  holds the state files
    /// @return empty when training has started, and finished() will follow; otherwise the refusal
    QString start(const QString &folder, const QList<int> &states);
    /// Gives a training up; the model from before stays. Does nothing while none runs.
    void stop();

    /// The highest state that the model can find; 0 without a model.
    int highestState() const;

    /// What takeSamples() brings from now on.
    /// @param rate  Hz
    void setStream(const QStringList &channels, double rate);
    void takeSamples(const std::vector<float> &planar, int count);

signals:
    /// Another model is used from now on, or none.
    void modelChanged();
    /// @param error  one sentence; empty on success
    void finished(const QString &error);
    /// The state of the newest window.
    void stateFound(int state);

private:
    void takeTraining(bool isTrained);
    void use(std::unique_ptr<LiveClassifier> classifier);
    void join();

    QString m_folder;
    QStringList m_channels;
    double m_rate = 0.0;
    std::unique_ptr<OfflineDataSource> m_source; ///< of the training
    std::unique_ptr<LiveClassifier> m_training; ///< null while none runs
    std::unique_ptr<LiveClassifier> m_current; ///< null without a model
};
