# How the machine's COM crosses processes: an object is one capability; the arguments of a
# method of a COM interface travel as bytes coded by that interface's marshaler.
@0x8c35c1ea5ec90dc7;

# What a server process's socket offers first: a session for a caller's account.
interface ComEndpoint {
  # The answer names the server's own account, which the caller checks the server's calls
  # back against.
  logon @0 (account :Text) -> (session :ComSession, account :Text);
}

# The classes the server process published, reached under the session's account.
interface ComSession {
  getClassObject @0 (clsid :Data, iid :Data) -> (hr :Int32, object :ComObject);
}

# One interface of one COM object; dropping the capability releases the server's reference.
interface ComObject {
  queryInterface @0 (iid :Data) -> (hr :Int32, object :ComObject);
  call @1 (iid :Data, method :UInt16, request :Data, objects :List(Interface))
      -> (hr :Int32, reply :Data, objects :List(Interface));
}

# An interface pointer that a request or a reply carries (no object: a null pointer).
struct Interface {
  iid @0 :Data;
  object @1 :ComObject;
}
