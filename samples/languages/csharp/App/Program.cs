using System;
using Shop.Models;
using static Shop.Util.Text;
using OrderAlias = Shop.Models.Order;

namespace Shop.App
{
    class Program
    {
        static void Main()
        {
            using (var log = Console.Out) { }
            using var other = Console.Error;
            var path = @"C:\using Shop.Nothing;";
        }
    }
}
