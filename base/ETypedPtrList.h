#pragma once

#include "base/EPtrList.h"

// A pointer list whose elements are of one pointer type. Used in declarations only.
template <class Base, class Type>
class ETypedPtrList : public Base {
public:
    using Base::Base;
};
