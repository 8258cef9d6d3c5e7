// Who may use a page: requests must name this server as their host, changes must come from its own pages, and
// a visitor must have a token, since other users of the machine reach the port as well. A token belongs to a
// role; the browser exchanges it for a cookie that no script can read.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace web {

struct Role {
  std::string name;   // "operator"
  std::string token;  // what the printed address holds
  std::string cookie_value;
};

// The role with a new token of 128 random bits. Throws std::system_error.
Role NewRole(const std::string& name);

// A role whose token is kept. Its cookie follows from it, so that open pages outlive the program's restart.
Role RoleWithToken(const std::string& name, const std::string& token);

// Takes as long for strings that differ at the first character as for those that differ at the last.
bool EqualInConstantTime(const std::string& left, const std::string& right);

class Access {
 public:
  // `public_host` is the name that a proxy with TLS serves this page under ("panel.example.org"), or empty.
  Access(std::vector<Role> roles, std::string cookie_name, std::string public_host);

  // Where the server listens: an address of this computer, "0.0.0.0" or "::" for all of them.
  void SetPlace(const std::string& address, int port);
  // "192.168.7.2:8080": an address that others reach the server at, if there is one.
  const std::string& OwnHost() const {
    return hosts_.back();
  }
  // True if the request's Host header names this server.
  bool KnowsHost(const std::string& host) const;
  // True if the Origin header is that of this server's own pages.
  bool KnowsOrigin(const std::string& origin) const;
  const Role* RoleOfToken(const std::string& token) const;
  // From the request's Cookie header.
  const Role* RoleOfCookies(const std::string& cookies) const;
  // The value of a Set-Cookie header. The browser sends it back over TLS only if `host` is the public one.
  std::string Cookie(const Role& role, const std::string& host) const;
  const std::vector<Role>& Roles() const {
    return roles_;
  }

 private:
  std::vector<Role> roles_;
  std::string cookie_name_;
  std::string public_host_;
  std::vector<std::string> hosts_;
};

}  // namespace web
