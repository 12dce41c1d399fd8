# nginx_peer.sh -- sourced by the benchmarks that measure a server of ours
# side by side with nginx: writes the peer's configuration.
#
#   nginx_peer_conf WORK PORT ROOT TYPE
#
# writes WORK/nginx/nginx.conf for an nginx that serves the files under
# ROOT on 127.0.0.1:PORT with the default type TYPE, keeps its temporary
# files and pid under WORK/nginx, logs no access and keeps connections alive
# for 100000 requests. Start it with `nginx -c WORK/nginx/nginx.conf -p WORK/nginx`.
nginx_peer_conf() {
    local work=$1 port=$2 root=$3 type=$4
    mkdir -p "$work/nginx"
    cat > "$work/nginx/nginx.conf" <<CONF
worker_processes auto;
daemon off;
pid $work/nginx/nginx.pid;
error_log $work/nginx/error.log;
events { worker_connections 1024; }
http {
    access_log off;
    sendfile on;
    tcp_nodelay on;
    keepalive_requests 100000;
    client_body_temp_path $work/nginx;
    proxy_temp_path $work/nginx;
    fastcgi_temp_path $work/nginx;
    uwsgi_temp_path $work/nginx;
    scgi_temp_path $work/nginx;
    server {
        listen 127.0.0.1:$port;
        root $root;
        default_type $type;
    }
}
CONF
}
