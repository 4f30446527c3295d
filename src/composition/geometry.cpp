#include "composition/geometry.h"

namespace orvelle {

Point JsonCoder<Point>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.required<double>("x"), reader.required<double>("y")};
}

Json JsonCoder<Point>::encode(const Point& value) {
    return {{"x", value.x}, {"y", value.y}};
}

Size JsonCoder<Size>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.required<double>("width"), reader.required<double>("height")};
}

Json JsonCoder<Size>::encode(const Size& value) {
    return {{"width", value.width}, {"height", value.height}};
}

Rect JsonCoder<Rect>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.required<double>("x"), reader.required<double>("y"),
            reader.required<double>("width"), reader.required<double>("height")};
}

Json JsonCoder<Rect>::encode(const Rect& value) {
    return {{"x", value.x}, {"y", value.y}, {"width", value.width}, {"height", value.height}};
}

} // namespace orvelle
