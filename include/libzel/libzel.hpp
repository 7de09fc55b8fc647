/// @file
/// libzel for C++17 and later: the functions of libzel.h as objects that clean up after themselves. Header
/// only; link the same library as a C program does. What a function does to the wire, and its every code, is
/// said in libzel.h and libzelx.h.
///
/// Conventions:
///
///  1. Errors are values. A call gives a zel::Result, or a zel::ValueOf that is one with a value: a code, its
///     text, and true in a condition when the code is 0. Nothing here throws but for lack of memory
///     (std::bad_alloc).
///  2. Threads. Every member function may be called from any thread, but for what is said of Send and Receive.
///     Making, moving, releasing and destroying an object are not for use beside other calls on the same
///     object.
///  3. Callbacks are std::functions. They are copied, and a copy lives until it can no longer be running: one
///     that is replaced, unsubscribed or unrouted while it runs is destroyed when it returns. Whatever it
///     refers to by reference must live until the receive thread is stopped (StopLoop, Release, the
///     destructor); those wait for a callback.
///  4. Never stop, release or destroy a Connection, nor the Library, from a callback: it may run on the very
///     thread that is waited for, and then the process ends.
///  5. An exception that leaves a callback never reaches the library: it is given to the handler that was set
///     with zel::SetExceptionHandler, on the callback's thread. Without a handler it ends the process
///     (std::terminate). A file transfer whose callback threw is stopped.
///  6. The library's log goes to std::clog from WARNING up, unless a zel::Options says otherwise.
///  7. Programs are protected from the dangers of the letter, and discovery starts with the first scan, unless a
///     zel::Options says otherwise.
///  8. Views (zel::Bytes, std::string_view) that a callback is given are valid during the call only.
#pragma once

#include <libzel/libzel.h>
#include <libzel/libzelx.h>
#include <libzel/hpp/answer.hpp>
#include <libzel/hpp/basics.hpp>
#include <libzel/hpp/connection.hpp>
#include <libzel/hpp/device_id.hpp>
#include <libzel/hpp/file_transfer.hpp>
#include <libzel/hpp/library.hpp>
#include <libzel/hpp/options.hpp>
#include <libzel/hpp/protection.hpp>

/// Everything of the C++ header.
namespace zel {}
