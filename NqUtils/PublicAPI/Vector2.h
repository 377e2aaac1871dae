// Two values side by side: the real-valued companion of an integer point.
//
//     TVector2Template<float> middle(0.5f, 0.5f);

#pragma once

template <typename T>
class TVector2Template
{
public:
    TVector2Template() {} // leaves both fields unset
    TVector2Template(T inX, T inY) : x(inX), y(inY) {}

    T x;
    T y;
};
