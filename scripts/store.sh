# shellcheck shell=bash
# Which store server the tests run. Sourced, after ui.sh.
#
# Whatever starts one for a test looks for redis-server in PATH first. So another server is a link of that name, in a folder
# that PATH begins with.
# shellcheck disable=SC2154 # project_root is the sourcing script's

# store_choose redis|valkey; ends the script when there is none.
store_choose()
{
    local folder=$project_root/build/valkey program version
    case $1 in
        redis) return 0 ;;
        valkey) ;;
        *) die 2 "test: no store server '$1'; there are redis and valkey" ;;
    esac
    # The server's code is in the checker too, which does what the name says that it is called by.
    program=$(command -v valkey-server || command -v valkey-check-rdb) ||
        die 1 "test: no valkey-server. Debian 12 has one in its backports: apt-get install -t bookworm-backports valkey-tools"
    mkdir -p "$folder"
    ln -sfn "$program" "$folder/redis-server"
    version=$("$folder/redis-server" --version)
    [[ $version == Valkey* ]] || die 1 "test: $program is not Valkey: $version"
    say "Store: $version"
    export PATH=$folder:$PATH
}
