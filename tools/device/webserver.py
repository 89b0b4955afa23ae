"""nginx in a device: serves /srv on port 8080 of every local address."""

from .device import Device

PROGRAM = "/usr/sbin/nginx"


def start(device: Device, server: str = "") -> None:
    """A line of /srv/nginx/access is the number of the connection, path, status, user agent,
    Cache-Control, Pragma. `server` goes into the server's configuration."""
    places = "".join(f"{name}_temp_path /srv/nginx/{name};" for name in ("client_body", "proxy", "fastcgi", "uwsgi", "scgi"))
    device.write("/srv/nginx/conf", f"""daemon off; master_process off; pid /srv/nginx/pid; events {{ }}
        http {{ log_format line "$connection|$uri|$status|$http_user_agent|$http_cache_control|$http_pragma";
                access_log /srv/nginx/access line; {places} sendfile on; keepalive_requests 10000;
                server {{ listen 8080; listen [::]:8080; root /srv; {server} }} }}""")
    device.serve(PROGRAM, "-e", "/srv/nginx/error", "-c", "/srv/nginx/conf", port=8080)
