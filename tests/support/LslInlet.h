#pragma once

#include <QDir>
#include <QFileInfo>
#include <QString>
#include <QStringList>

#include <lsl_c.h>

#include <functional>
#include <vector>

/// Receives one stream of this machine, as another program would.
class LslInlet
{
public:
    struct Description
    {
        QString name;
        QString type;
        QString sourceId;
        double rate = 0.0;
        bool isFloat32 = false;
        int channelCount = 0;
        QString manufacturer;
        QStringList labels;
        QStringList units;
        QStringList types;
    };
    struct Sample
    {
        double stamp;
        std::vector<float> values;
    };

    /// Looks for the stream whose property ("name", "source_id") has this value, for some seconds.
    explicit LslInlet(const QString &value, const char *property = "name")
    {
        lsl_streaminfo found = nullptr;
        if (lsl_resolve_byprop(&found, 1, property, value.toUtf8().constData(), 1, kSeconds) == 1) {
            m_channels = static_cast<std::size_t>(lsl_get_channel_count(found));
            m_inlet = lsl_create_inlet(found, kBufferSeconds, 0, 1);
            lsl_destroy_streaminfo(found);
        }
    }
    ~LslInlet()
    {
        if (m_inlet) {
            lsl_destroy_inlet(m_inlet);
        }
    }
    LslInlet(const LslInlet &) = delete;
    LslInlet &operator=(const LslInlet &) = delete;

    /// Makes the library announce and look for streams on this machine only. Before its first use in the program, which
    /// is when it reads its configuration: versions before 1.14 know no variable, only lsl_api.cfg in the working
    /// folder.
    static bool restrictToThisMachine(const QString &configuration)
    {
        const QFileInfo file(configuration);
        return file.isFile() && file.fileName() == QLatin1String("lsl_api.cfg")
            && qputenv("LSLAPICFG", file.absoluteFilePath().toLocal8Bit()) && QDir::setCurrent(file.absolutePath());
    }

    static double now() { return lsl_local_clock(); }
    bool isFound() const { return m_inlet != nullptr; }

    Description describe() const
    {
        int error = 0;
        const lsl_streaminfo info = lsl_get_fullinfo(m_inlet, kSeconds, &error);
        Description result;
        if (!info) {
            return result;
        }
        result.name = QString::fromUtf8(lsl_get_name(info));
        result.type = QString::fromUtf8(lsl_get_type(info));
        result.sourceId = QString::fromUtf8(lsl_get_source_id(info));
        result.rate = lsl_get_nominal_srate(info);
        result.isFloat32 = lsl_get_channel_format(info) == cft_float32;
        result.channelCount = lsl_get_channel_count(info);
        const lsl_xml_ptr root = lsl_get_desc(info);
        result.manufacturer = QString::fromUtf8(lsl_child_value_n(root, "manufacturer"));
        for (lsl_xml_ptr channel = lsl_first_child(lsl_child(root, "channels")); !lsl_empty(channel);
             channel = lsl_next_sibling(channel)) {
            result.labels << QString::fromUtf8(lsl_child_value_n(channel, "label"));
            result.units << QString::fromUtf8(lsl_child_value_n(channel, "unit"));
            result.types << QString::fromUtf8(lsl_child_value_n(channel, "type"));
        }
        lsl_destroy_streaminfo(info);
        return result;
    }

    /// Calls warmUp(), which is to push a sample with a negative first value, until one arrives: an outlet sends only
    /// to whom it knows. False when none does.
    bool open(const std::function<void()> &warmUp)
    {
        for (const double end = now() + kSeconds; m_inlet && now() < end;) {
            warmUp();
            if (!take(kPollSeconds).values.empty()) {
                return true;
            }
        }
        return false;
    }

    /// The next samples, without those of the warm-up; fewer when they don't come in time.
    std::vector<Sample> pull(int count)
    {
        std::vector<Sample> samples;
        while (samples.size() < static_cast<std::size_t>(count)) {
            Sample sample = take(kSeconds);
            if (sample.values.empty()) {
                break;
            }
            if (sample.values[0] >= 0.0f) {
                samples.push_back(std::move(sample));
            }
        }
        return samples;
    }

    /// Whether nothing more has arrived.
    bool isEmpty() { return take(0.0).values.empty(); }

private:
    static constexpr double kSeconds = 20.0;
    static constexpr int kBufferSeconds = 360;
    static constexpr double kPollSeconds = 0.02;

    Sample take(double seconds)
    {
        Sample sample{0.0, std::vector<float>(m_channels)};
        int error = lsl_no_error;
        sample.stamp = lsl_pull_sample_f(m_inlet, sample.values.data(), static_cast<int>(m_channels), seconds, &error);
        if (sample.stamp == 0.0 || error != lsl_no_error) {
            sample.values.clear();
        }
        return sample;
    }

    lsl_inlet m_inlet = nullptr;
    std::size_t m_channels = 0;
};
