#include "common/MetaTypes.h"

namespace bp {

void registerMetaTypes()
{
    // Qt 5 adds the converter to a sequential-iterable view together with the type.
    qRegisterMetaType<std::vector<float>>("vector<float>");
    qRegisterMetaType<std::vector<unsigned int>>("vector<unsigned int>");
    qRegisterMetaType<std::vector<unsigned int>>("vector<uint>");
    // Registered under the normalised name, "vector<vector<float> >", which the spelling without the blank finds too.
    qRegisterMetaType<std::vector<std::vector<float>>>("vector<vector<float>>");
    qRegisterMetaType<std::vector<std::vector<double>>>("vector<vector<double>>");
}

} // namespace bp
