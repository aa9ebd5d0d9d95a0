#pragma once

/// \file
/// Includes everything that an application needs: receivers, senders and the platform below them.

/// \namespace tarnwick
/// Everything that Tarnwick declares.

#if __cplusplus < 202002L
#error "Tarnwick needs C++20: compile with -std=c++20 or later"
#endif

#include "Tarnwick/BaseStreamOperation.hpp"
#include "Tarnwick/CGRectExtension.hpp"
#include "Tarnwick/ImagePacket.hpp"
#include "Tarnwick/NSImageExtension.hpp"
#include "Tarnwick/Platform/Data.hpp"
#include "Tarnwick/Platform/DispatchQueue.hpp"
#include "Tarnwick/Platform/Geometry.hpp"
#include "Tarnwick/Platform/NSImage.hpp"
#include "Tarnwick/Platform/NSOperation.hpp"
#include "Tarnwick/Platform/NSOperationQueue.hpp"
#include "Tarnwick/RxAudioFrame.hpp"
#include "Tarnwick/RxAudioUDP.hpp"
#include "Tarnwick/RxImageFrame.hpp"
#include "Tarnwick/RxImageUDP.hpp"
#include "Tarnwick/RxResponse.hpp"
#include "Tarnwick/RxStreamAudioOperation.hpp"
#include "Tarnwick/RxStreamImageOperation.hpp"
#include "Tarnwick/RxStreamVideoOperation.hpp"
#include "Tarnwick/RxVideoFrame.hpp"
#include "Tarnwick/RxVideoUDP.hpp"
#include "Tarnwick/TxImageUDP.hpp"
#include "Tarnwick/TxStreamImageOperation.hpp"
#include "Tarnwick/UDPClient.hpp"
#include "Tarnwick/UDPError.hpp"
#include "Tarnwick/UDPServer.hpp"
