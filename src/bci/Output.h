#pragma once

#include "common/BPExport.h"

#include <QObject>

/// Extension point: base class for a receiver of a model's results. It does nothing.
class BIOPROCESSING_EXPORT Output : public QObject
{
    Q_OBJECT
public:
    explicit Output(QObject *parent = nullptr);
    ~Output() override;
};
