// What an in-process COM server tells the class object of class_object.cpp, which every such library of the stand-ins compiles in
// together with the exports of class_object.def. Any thread.
#pragma once

#include <windows.h>
#include <unknwn.h>

namespace crv::standins {

extern const CLSID& served_class;

// Hands out a new object under one of its interfaces. `*object` is null before, and stays so when a success without an object was
// scripted.
HRESULT CreateObject(REFIID iid, void** object);

}  // namespace crv::standins
