// What a server of the ground does with one connection.
#pragma once

#include "ground/answers.h"
#include "ground/journal.h"
#include "ground/socket_stream.h"

namespace selfcheck {

struct Supplies {
  Journal journal;
  Scripts scripts;
};

void converse(Server server, SocketStream& connection, Supplies& supplies);

}  // namespace selfcheck
