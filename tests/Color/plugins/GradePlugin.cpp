// The test plug-in "Grade": a slope per channel, out = in * slope.
#include "Color/VKFilter.h"
#include "Color/VKImage.h"
#include "Color/VKTriple.h"

#include <QObject>
#include <QtPlugin>

class GradeFilter : public VKFilter
{
public:
    GradeFilter() : VKFilter(QStringLiteral(GRADE_FILTER_NAME))
    {
        declareInputKey(VKFilterInputImageKey, {{VKAttributeType, VKAttributeTypeImage}});
        declareInputKey(QStringLiteral("inputSlope"),
                        {{VKAttributeType, VKAttributeTypeTriple},
                         {VKAttributeDefault, QVariant::fromValue(VKRGBTriple(1, 1, 1))}});
    }

    VKImage outputImage() override
    {
        const VKTriple s = VKTriple::fromVariant(inputValue(QStringLiteral("inputSlope")))
                               .value_or(VKTriple(1, 1, 1));
        return inputImage().imageByApplyingPointFunction([s](float *p, qint64 n) {
            for (qint64 i = 0; i < n; ++i, p += 4) {
                p[0] *= s.x();
                p[1] *= s.y();
                p[2] *= s.z();
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
