#pragma once

#include "common/BPExport.h"

#include <QObject>

/// Extension point for what a model's results are sent to; does nothing yet.
class BIOPROCESSING_EXPORT Output : public QObject
{
    Q_OBJECT
public:
    explicit Output(QObject *parent = nullptr);
    ~Output() override;
};
