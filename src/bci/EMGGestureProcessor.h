#pragma once

#include "bci/Processor.h"

/// Classifies rows of features into any number of gestures and rejects what resembles none of them.
///
/// Linear discriminant analysis (R. A. Fisher 1936; for many classes T. Hastie, R. Tibshirani, J. Friedman, "The
/// Elements of Statistical Learning", 4.3) with equal priors: the class whose mean is nearest in the metric of the
/// pooled covariance within the classes, which is shrunk towards its diagonal (J. Friedman 1989). Features that don't
/// vary over the examples are ignored.
///
/// Results of passThrough: "Class", the label, or −1 when rejected, and "distance", to the nearest class. Distances are
/// Mahalanobis distances divided by the square root of the number of features in use: about 1 for a typical member,
/// whatever their number.
class BIOPROCESSING_EXPORT EMGGestureProcessor : public Processor
{
    Q_OBJECT
public:
    /// @param minimumRate       share of its examples, 0 … 1, that every class must get right in doValidate
    /// @param normalise         scales the features by their deviation over all examples; matters only to the shrinkage
    ///                          and the numbers when their units are far apart
    /// @param shrinkagePercent  0 (the covariance as it is) … 100 (features taken as independent), or
    ///                          kShrinkageFromData: as much as the number and spread of the examples call for (O.
    ///                          Ledoit and M. Wolf 2004), which carries over to other recordings best
    /// @param minimumExamples   per class, at least 2
    /// @param rejectDistance    greater distances to every class are rejected; 0: never
    EMGGestureProcessor(float minimumRate, bool normalise, int shrinkagePercent, int minimumExamples,
                        float rejectDistance, QObject *parent = nullptr);
    static constexpr int kRejected = -1;
    static constexpr int kShrinkageFromData = -1;

    /// Takes the first row. A label below 0 marks no gesture and is ignored; a row that is empty, not finite or of
    /// another length than the first example is ignored with a trace line.
    void preTrain(vector<vector<float>> &window, int label) override;
    using Processor::preTrain;
    /// Builds the classifier at once. Examples that allow no classifier give one trace line.
    void postTrain() override;
    /// Classifies every training example as passThrough would: "rate_" + index of the class in ascending order. True
    /// when there is a classifier and no rate is below the minimum.
    bool doValidate() override;
    /// @param out  one row: the distance to each class in ascending order of label. Empty without a classifier and for
    ///             features of another number or not finite; "Class" is −1 then.
    void passThrough(vector<vector<float>> *in, vector<vector<float>> *out) override;
    /// The classifier and the rejection distance.
    QJsonObject model() const override;
    bool setModel(const QJsonObject &model, QString &reason) override;

private:
    QString findFault() const;
    bool fit();
    /// Distances to all classes and the winner's label; kRejected when the nearest distance is too large or NaN.
    int classify(const vector<float> &features, vector<float> &distances, float &nearest);
    void whiten(const vector<float> &features);
    void forget();

    float m_minimumRate;
    bool m_normalise;
    int m_shrinkagePercent;
    int m_minimumExamples;
    float m_rejectDistance;
    bool m_complained = false;

    std::vector<int> m_classes; ///< empty: no classifier
    std::vector<float> m_mean; ///< of each feature
    std::vector<float> m_scale; ///< of each feature; 0: not in use
    std::vector<std::vector<float>> m_whitening; ///< square, lower triangle; scaled features → unit covariance
    std::vector<std::vector<float>> m_centres; ///< a row per class, whitened
    vector<float> m_scaled; ///< of the window at hand
    vector<float> m_whitened;
};
