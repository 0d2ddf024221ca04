// SPDX-License-Identifier: LGPL-2.1-or-later

/**
 * libqandor for C++20: the C interface in values, functions and operators. Header only; programs
 * link with what they use in C.
 *
 * 1. Values (Event, Declaration, Expression) copy deeply and move. Handles (EventProducer,
 *    EventConsumer, EventQuery) and what is had from them (Publication, Subscription) end what they
 *    stand for when they end. c() lends the C record beneath any of them.
 * 2. What can fail comes twice: send() throws an Error, try_send() returns a Result.
 * 3. Functions given to a handle run on the thread that iterates the default main context, which
 *    the application has to run, and must not throw. They may end what they belong to.
 */
#pragma once

#include <qandor/cpp/consumer.hpp>
#include <qandor/cpp/declaration.hpp>
#include <qandor/cpp/error.hpp>
#include <qandor/cpp/event.hpp>
#include <qandor/cpp/expression.hpp>
#include <qandor/cpp/expressiontext.hpp>
#include <qandor/cpp/producer.hpp>
#include <qandor/cpp/query.hpp>
#include <qandor/cpp/value.hpp>
#include <qandor/qandor.h>
