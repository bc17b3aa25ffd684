"""What comes with cgctl besides the command: completion where the shells look for it, its page, the access list."""

COMPLETE = """
. /usr/share/bash-completion/bash_completion
_completion_loader cgctl
complete -p cgctl
COMP_WORDS=(cgctl card pl)
COMP_CWORD=2
_cgctl cgctl pl card
printf '%s\\n' "${COMPREPLY[@]}"
"""


def test_the_shells_find_the_completion(device):
    bound, *offered = device.run("bash", "--norc", "-c", COMPLETE).splitlines()
    assert "cgctl" in bound
    assert [word.strip() for word in offered] == ["plug"]
    first = device.run("head", "-n", "1", "/usr/share/zsh/vendor-completions/_cgctl").strip()
    assert first == "#compdef cgctl"


def test_the_manual_pages_are_where_man_looks(device):
    for page in ("man1/cgctl.1", "man8/app_cg.8"):
        assert ".Sh NAME" in device.run("gzip", "-dc", f"/usr/share/man/{page}.gz")


def test_what_developers_use_is_in_their_package_alone(device):
    assert device.run("dpkg", "-S", "/usr/bin/cg_sim").strip() == "libapp-cg-kit-dev: /usr/bin/cg_sim"


def test_the_template_of_the_access_list_is_one(device):
    template = "/usr/share/app_cg/users.acl.template"
    device.sh("install -d /srv/modules; touch /srv/modules/NAME")
    printed = device.sh("cgctl acl --modules /srv/modules 2>/dev/null")
    assert device.run("cat", template) == printed
    assert "user module-NAME reset off " in printed
    # As it is it lets nobody in; with passwords it is a list like the one that cgctl makes.
    device.sh("systemctl stop app_cg redis-server\n"
              "digest=$(printf secret | sha256sum | cut -d' ' -f1)\n"
              f"sed \"/^user default/!s/ reset off/ reset on #$digest/\" {template} > /etc/redis/users.acl\n"
              "echo 'aclfile /etc/redis/users.acl' >> /etc/redis/redis.conf\n"
              "printf 'user app_cg-admin\\npassword secret\\n' > /srv/admin; chmod 0600 /srv/admin\n"
              "systemctl start redis-server")
    device.wait(lambda: "NO" in device.run("redis-cli", "ping", check=False), "the store answers")
    told = device.sh("redis-cli --user app_cg-admin --pass secret --no-auth-warning acl users")
    assert set(told.split()) == {line.split()[1] for line in printed.splitlines()}
