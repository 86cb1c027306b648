// Everything a host compiles against to use libvellumrig.so.
#pragma once

#include "vellumrig/error.h"
#include "vellumrig/error_text.h"
#include "vellumrig/host.h"
#include "vellumrig/machine.h"
#include "vellumrig/ref.h"
#include "vellumrig/server.h"
#include "vellumrig/string.h"
#include "vellumrig/tracker.h"
#include "vellumrig/disk.h"

