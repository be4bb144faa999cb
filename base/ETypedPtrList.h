#pragma once

#include "base/EPtrList.h"

// A pointer list whose elements are of one pointer type. It stands in declarations alone.
template <class Base, class Type>
class ETypedPtrList : public Base {
public:
    using Base::Base;
};
