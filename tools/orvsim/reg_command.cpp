// `orvsim reg` on the command line: CLI11 selects query, add or delete; reg.exe's own syntax
// is then parsed by reg_args.cpp.
#include "command.h"
#include "reg_console.h"
#include "reg_operations.h"

#include <iostream>

namespace orvsim {

namespace {

class RegCommand : public Command
{
public:
    explicit RegCommand(CLI::App& app)
    {
        m_pReg = app.add_subcommand("reg", "Query, add and delete registry keys and values, "
                                           "with reg.exe's syntax and output");
        m_pReg->require_subcommand(1);
        // reg.exe takes its operations in any case ("REG QUERY").
        m_pReg->ignore_case();
        m_pQuery = AddOperation("query", "List a key's values and subkeys, or one value",
                                reg::kQueryUsage);
        m_pAdd = AddOperation("add", "Create a key, or set a value", reg::kAddUsage);
        m_pDelete =
            AddOperation("delete", "Delete a key with its subtree, or values", reg::kDeleteUsage);
    }

    bool Selected() const override { return m_pReg->parsed(); }

    int Run() override
    {
        if (m_pQuery->parsed())
            return Dispatch<reg::QueryArgs>(m_pQuery, reg::ParseQueryArgs, reg::RunQuery,
                                            reg::kQueryUsage);
        if (m_pAdd->parsed())
            return Dispatch<reg::AddArgs>(m_pAdd, reg::ParseAddArgs, reg::RunAdd, reg::kAddUsage);
        return Dispatch<reg::DeleteArgs>(m_pDelete, reg::ParseDeleteArgs, reg::RunDelete,
                                         reg::kDeleteUsage);
    }

private:
    CLI::App* AddOperation(const char* name, const char* description, const char* usage)
    {
        CLI::App* pOperation = m_pReg->add_subcommand(name, description);
        // reg.exe's "/v Name" style is not CLI11's: everything after the operation's name is
        // left, unparsed, for reg_args.cpp.
        pOperation->prefix_command();
        pOperation->ignore_case();
        pOperation->footer(std::string("\nSyntax (as reg.exe's):\n  ") + usage);
        return pOperation;
    }

    template <class Args, class Parse, class Execute>
    static int Dispatch(CLI::App* pOperation, Parse parse, Execute execute, const char* usage)
    {
        Args args;
        switch (parse(pOperation->remaining(), &args)) {
        case reg::ParseResult::kOk:
            return execute(args);
        case reg::ParseResult::kHelp:
            std::cout << usage;
            return 0;
        case reg::ParseResult::kInvalidKey:
            return reg::Fail(std::string("Invalid key name. Type \"orvsim reg ") +
                             pOperation->get_name() + " /?\" for usage.");
        case reg::ParseResult::kInvalidSyntax:
            break;
        }
        return reg::Fail(std::string("Invalid syntax. Type \"orvsim reg ") +
                         pOperation->get_name() + " /?\" for usage.");
    }

    CLI::App* m_pReg = nullptr;
    CLI::App* m_pQuery = nullptr;
    CLI::App* m_pAdd = nullptr;
    CLI::App* m_pDelete = nullptr;
};

} // namespace

std::unique_ptr<Command> AddRegCommand(CLI::App& app)
{
    return std::make_unique<RegCommand>(app);
}

} // namespace orvsim
