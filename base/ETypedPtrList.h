#pragma once

#include "base/EPtrList.h"

// A pointer list whose elements are of one pointer type.
template <class Base, class Type>
class ETypedPtrList : public Base {
public:
    using Base::Base;
    using typename Base::Position;

    Position AddTail(Type element) { return Base::AddTail(element); }
    Type RemoveHead() { return static_cast<Type>(Base::RemoveHead()); }
    Type GetNext(Position& position) const { return static_cast<Type>(Base::GetNext(position)); }
};
