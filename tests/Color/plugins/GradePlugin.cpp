// The test plug-in "Grade": slope and offset per channel, out = in * slope + offset.
#include "Color/VKFilter.h"
#include "Color/VKImage.h"
#include "Color/VKTriple.h"

#include <QObject>
#include <QtPlugin>

namespace {

VKTriple tripleOr(const QVariant &value, VKTriple fallback)
{
    return VKTriple::fromVariant(value).value_or(fallback);
}

} // namespace

class GradeFilter : public VKFilter
{
public:
    GradeFilter() : VKFilter(QStringLiteral(GRADE_FILTER_NAME))
    {
        declareInputKey(VKFilterInputImageKey, {{VKAttributeType, VKAttributeTypeImage}});
        declareInputKey(QStringLiteral("inputSlope"),
                        {{VKAttributeType, VKAttributeTypeTriple},
                         {VKAttributeDefault, QVariant::fromValue(VKRGBTriple(1, 1, 1))}});
        declareInputKey(QStringLiteral("inputOffset"),
                        {{VKAttributeType, VKAttributeTypeTriple},
                         {VKAttributeDefault, QVariant::fromValue(VKRGBTriple(0, 0, 0))}});
    }

    VKImage outputImage() override
    {
        const VKTriple s = tripleOr(inputValue(QStringLiteral("inputSlope")), VKTriple(1, 1, 1));
        const VKTriple o = tripleOr(inputValue(QStringLiteral("inputOffset")), VKTriple(0, 0, 0));
        return inputImage().imageByApplyingPointFunction([s, o](float *p, qint64 n) {
            for (qint64 i = 0; i < n; ++i, p += 4) {
                p[0] = p[0] * s.x() + o.x();
                p[1] = p[1] * s.y() + o.y();
                p[2] = p[2] * s.z() + o.z();
            }
        });
    }
};

VK_REGISTER_FILTER(GradeFilter, GRADE_FILTER_NAME)

class GradePlugin : public QObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "com.vessan.VessanUtilities.Filter" FILE "GradePlugin.json")
};

#include "GradePlugin.moc"
