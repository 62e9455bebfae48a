#pragma once

#include <json/value.h>

#include <functional>
#include <string>

#include "cli/suggest.h"

namespace zel::ctl {

// A path names a place in a document: "rtsp/tcp-port". An element of a list goes by its name where all elements have
// one ("ethipv4/eth1/mode"), and by its number from 0 on otherwise.
//
// The name of an object is in the path of every value in it, so all paths of a document can be much longer than the
// document. Functions that visit a whole document pass one path at a time to a callback and keep none.

/// Visits the values of a document, with their paths, in the document's order; an empty list or object counts as a
/// value. A document that is a single value has none.
void forEachLeaf(const Json::Value& document,
                 const std::function<void(const std::string& path, const Json::Value& value)>& visit);

/// The paths of everything in the document, without those that are too long to be typed.
Words pathsOf(const Json::Value& document);

/// The value at a path, which may begin with a slash; the empty path is the document itself. Null: there is none.
const Json::Value* valueAt(const Json::Value& document, const std::string& path);

/// The path of the smallest part of a document that `fails` by itself: each part is tried alone, inside objects and
/// lists that hold nothing else. A list or an object that fails without its elements is such a part. Empty: the
/// document itself, or no part of it.
std::string pathOfFault(const Json::Value& document, const std::function<bool(Json::Value& part)>& fails);

/// Visits the values that differ between two documents. Null: the value is not there before, or not there after.
void forEachChange(
    const Json::Value& before, const Json::Value& after,
    const std::function<void(const std::string& path, const Json::Value* before, const Json::Value* after)>& visit);

}  // namespace zel::ctl
