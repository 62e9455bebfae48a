#include "common/json_serializable.h"

// Out of line, so that the class's type information has one home.
IJsonSerializable::~IJsonSerializable() = default;
