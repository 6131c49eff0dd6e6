// A program that takes tools out of the toolbox and hosts no control.

#include <iostream>

#include <TesselServer/EventLoop.h>
#include <TesselServer/cls_INet.h>
#include <TesselServer/cls_NTSecurity.h>
#include <TesselServer/cls_WinSock.h>

int main() {
  using namespace TesselServer;
  std::cout << cls_WinSock::SocketErrorText(10061) << '\n';
  std::cout << cls_WinSock::AddressText(cls_WinSock().AddressFromText("127.1")) << '\n';
  std::cout << cls_INet().AddressOfHostName("192.0.2.7") << '\n';
  std::cout << cls_NTSecurity::PermissionName(cls_NTSecurity::kGrant, 0x1200A9) << '\n';

  EventLoop loop;
  NotifyingSocket listener(loop);
  NotifyingSocket client(loop);
  SocketHandlers handlers;
  handlers.Connected = [&loop] {
    std::cout << "connected\n";
    loop.Stop();
  };
  client.Handlers(std::move(handlers));
  const cls_WinSock sockets;
  if (!sockets.ListenOnSocket(listener, 0, "127.0.0.1")) return 1;
  if (!sockets.ConnectSocket(client, "127.0.0.1", cls_WinSock::OwnAddress(listener).port)) return 1;
  loop.Run();
}
